// A service's configuration on the manager's wire: what the client writes
// the daemon reads back whole, an absent change stays absent (never an
// empty one), and a frame cut short anywhere is refused.
#include "svcconfigwire.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace tsp::svc;

namespace {

// Every field of each configuration, to compare whole.
auto fields(const CreateConfig &c)
{
    return std::tie(c.name, c.display, c.hasDisplay, c.type, c.start, c.errorControl, c.imagePath, c.account, c.group,
                    c.dependencies);
}

auto fields(const ConfigChange &c)
{
    return std::tie(c.type, c.start, c.errorControl, c.imagePath, c.account, c.group, c.display, c.description,
                    c.dependencies, c.delayedAutostart);
}

auto fields(const QueriedConfig &c)
{
    return std::tie(c.type, c.start, c.errorControl, c.imagePath, c.account, c.group, c.display, c.description,
                    c.delayedAutostart, c.dependencies);
}

// What the writer wrote the reader gives back whole; every prefix of that
// frame the reader refuses.
template <class Config>
void expectRoundTrip(const Config &c, void (*write)(Writer &, const Config &), bool (*read)(Reader &, Config &))
{
    Writer w;
    write(w, c);
    Reader r(w.data());
    Config back;
    EXPECT_TRUE(read(r, back));
    EXPECT_EQ(fields(back), fields(c));
    for (size_t n = 0; n < w.data().size(); ++n) {
        std::string prefix = w.data().substr(0, n);
        Reader cut(prefix);
        Config partial;
        EXPECT_FALSE(read(cut, partial)) << "cut at " << n << " of " << w.data().size();
    }
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
        expectRoundTrip(*c, writeChange, readChange);
}

TEST(ConfigWire, CreatedAndQueriedConfigurationsComeBackWhole)
{
    expectRoundTrip(CreateConfig{"Svc", "", true, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                 SERVICE_ERROR_NORMAL, "/bin/true", "svcuser", "Grp", {"A", "+G"}},
                    writeCreate, readCreate);
    expectRoundTrip(QueriedConfig{SERVICE_WIN32_SHARE_PROCESS, SERVICE_DISABLED, SERVICE_ERROR_SEVERE, "/x", "acct",
                                  "grp", "Shown", "What it does", true, {"+G"}},
                    writeQueried, readQueried);
}
