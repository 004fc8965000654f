// A service's configuration on the manager's wire: what the client writes
// the daemon reads back whole, an absent change stays absent (never an
// empty one), and a frame cut short anywhere is refused.
#include "svcconfigwire.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace tsp::svc;

namespace {

void expectSame(const ConfigChange &a, const ConfigChange &b)
{
    EXPECT_EQ(a.type, b.type);
    EXPECT_EQ(a.start, b.start);
    EXPECT_EQ(a.errorControl, b.errorControl);
    EXPECT_EQ(a.imagePath, b.imagePath);
    EXPECT_EQ(a.account, b.account);
    EXPECT_EQ(a.group, b.group);
    EXPECT_EQ(a.display, b.display);
    EXPECT_EQ(a.description, b.description);
    EXPECT_EQ(a.dependencies, b.dependencies);
    EXPECT_EQ(a.delayedAutostart, b.delayedAutostart);
}

// The configuration as the reader gives back what the writer wrote; every
// prefix of that frame the reader refuses.
template <class Config>
Config roundTrip(const Config &c, void (*write)(Writer &, const Config &), bool (*read)(Reader &, Config &))
{
    Writer w;
    write(w, c);
    Reader r(w.data());
    Config back;
    EXPECT_TRUE(read(r, back));
    for (size_t n = 0; n < w.data().size(); ++n) {
        Reader cut(w.data().substr(0, n));
        Config partial;
        EXPECT_FALSE(read(cut, partial)) << "cut at " << n << " of " << w.data().size();
    }
    return back;
}

} // namespace

TEST(ConfigWire, ChangesKeepWhatIsAbsentApartFromWhatIsEmpty)
{
    ConfigChange none;
    ConfigChange emptied;
    emptied.imagePath = "";
    emptied.description = "";
    emptied.dependencies = std::vector<std::string>();
    emptied.delayedAutostart = false;
    ConfigChange full;
    full.type = SERVICE_WIN32_OWN_PROCESS;
    full.start = SERVICE_AUTO_START;
    full.errorControl = SERVICE_ERROR_IGNORE;
    full.imagePath = "/opt/svc/bin/d\xc3\xa9mon --run";
    full.account = "LocalSystem";
    full.group = "Net";
    full.display = "Display";
    full.description = "A\nB";
    full.dependencies = std::vector<std::string>{"Other", "+Group", ""};
    full.delayedAutostart = true;
    for (const ConfigChange *c : {&none, &emptied, &full})
        expectSame(*c, roundTrip(*c, writeChange, readChange));
}

TEST(ConfigWire, CreatedAndQueriedConfigurationsComeBackWhole)
{
    CreateConfig created{"Svc", "", true, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                         "/bin/true", "svcuser", "Grp", {"A", "+G"}};
    CreateConfig c = roundTrip(created, writeCreate, readCreate);
    EXPECT_EQ(std::tie(c.name, c.display, c.imagePath, c.account, c.group),
              std::tie(created.name, created.display, created.imagePath, created.account, created.group));
    EXPECT_EQ(std::tie(c.hasDisplay, c.type, c.start, c.errorControl),
              std::tie(created.hasDisplay, created.type, created.start, created.errorControl));
    EXPECT_EQ(c.dependencies, created.dependencies);

    QueriedConfig queried{SERVICE_WIN32_SHARE_PROCESS, SERVICE_DISABLED, SERVICE_ERROR_SEVERE, "/x", "acct", "grp",
                          "Shown", "What it does", true, {"+G"}};
    QueriedConfig q = roundTrip(queried, writeQueried, readQueried);
    EXPECT_EQ(std::tie(q.imagePath, q.account, q.group, q.display, q.description),
              std::tie(queried.imagePath, queried.account, queried.group, queried.display, queried.description));
    EXPECT_EQ(std::tie(q.type, q.start, q.errorControl, q.delayedAutostart),
              std::tie(queried.type, queried.start, queried.errorControl, queried.delayedAutostart));
    EXPECT_EQ(q.dependencies, queried.dependencies);
}
