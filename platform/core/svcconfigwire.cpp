// A service's configuration on the manager's wire.
#include "svcconfigwire.h"

namespace tsp::svc {

namespace {

void writeList(Writer &w, const std::vector<std::string> &list)
{
    w.u32(static_cast<uint32_t>(list.size()));
    for (const std::string &s : list)
        w.str(s);
}

// A count, then that many strings; stops at the frame's end.
std::vector<std::string> readList(Reader &r)
{
    std::vector<std::string> list;
    for (uint32_t i = 0, n = r.u32(); i < n && r.ok(); ++i)
        list.push_back(r.str());
    return list;
}

// An optional text of a change: (present, text), the text empty when absent.
void writeOptional(Writer &w, const std::optional<std::string> &text)
{
    w.u32(text ? 1 : 0).str(text ? *text : std::string());
}

void readOptional(Reader &r, std::optional<std::string> &text)
{
    bool present = r.u32() != 0;
    std::string value = r.str();
    if (present)
        text = std::move(value);
}

// What a new service and a queried one carry alike, in this order: type,
// start, error control, path, account, group.
template <class Config> void writeSettings(Writer &w, const Config &c)
{
    w.u32(c.type).u32(c.start).u32(c.errorControl).str(c.imagePath).str(c.account).str(c.group);
}

template <class Config> void readSettings(Reader &r, Config &c)
{
    c.type = r.u32();
    c.start = r.u32();
    c.errorControl = r.u32();
    c.imagePath = r.str();
    c.account = r.str();
    c.group = r.str();
}

} // namespace

void writeCreate(Writer &w, const CreateConfig &c)
{
    w.str(c.name).str(c.display).u32(c.hasDisplay ? 1 : 0);
    writeSettings(w, c);
    writeList(w, c.dependencies);
}

bool readCreate(Reader &r, CreateConfig &c)
{
    c.name = r.str();
    c.display = r.str();
    c.hasDisplay = r.u32() != 0;
    readSettings(r, c);
    c.dependencies = readList(r);
    return r.ok();
}

void writeChange(Writer &w, const ConfigChange &c)
{
    w.u32(c.type).u32(c.start).u32(c.errorControl);
    for (const std::optional<std::string> *text : {&c.imagePath, &c.account, &c.group, &c.display, &c.description})
        writeOptional(w, *text);
    w.u32(c.dependencies ? 1 : 0);
    if (c.dependencies)
        writeList(w, *c.dependencies);
    w.u32(c.delayedAutostart ? 1 : 0).u32(c.delayedAutostart.value_or(false) ? 1 : 0);
}

bool readChange(Reader &r, ConfigChange &c)
{
    c.type = r.u32();
    c.start = r.u32();
    c.errorControl = r.u32();
    for (std::optional<std::string> *text : {&c.imagePath, &c.account, &c.group, &c.display, &c.description})
        readOptional(r, *text);
    if (r.u32())
        c.dependencies = readList(r);
    bool delayedGiven = r.u32() != 0;
    bool delayed = r.u32() != 0;
    if (delayedGiven)
        c.delayedAutostart = delayed;
    return r.ok();
}

void writeQueried(Writer &w, const QueriedConfig &c)
{
    writeSettings(w, c);
    w.str(c.display).str(c.description);
    w.u32(c.delayedAutostart ? 1 : 0);
    writeList(w, c.dependencies);
}

bool readQueried(Reader &r, QueriedConfig &c)
{
    readSettings(r, c);
    c.display = r.str();
    c.description = r.str();
    c.delayedAutostart = r.u32() != 0;
    c.dependencies = readList(r);
    return r.ok();
}

} // namespace tsp::svc
