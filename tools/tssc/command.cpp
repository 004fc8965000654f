// Reading tssc's command line.
#include "command.h"

#include "casefold.h"

#include <string.h>

#include <utility>

namespace tssc {

namespace {

using Options = std::vector<std::pair<std::string, std::string>>;

// "key= value" pairs after the name, as sc.exe takes them (the value is
// the next word; "key=value" in one word is taken too). Keys fold to
// lower case.
bool options(int argc, const char *const *argv, int from, Options &out)
{
    for (int i = from; i < argc; ++i) {
        std::string a = argv[i];
        std::string::size_type eq = a.find('=');
        if (eq == std::string::npos)
            return false;
        std::string key = a.substr(0, eq + 1), value = a.substr(eq + 1);
        if (value.empty()) {
            if (i + 1 >= argc)
                return false;
            value = argv[++i];
        }
        out.emplace_back(tsp::foldLower(key), value);
    }
    return true;
}

bool createOptions(const Options &opts, Command &c)
{
    for (auto &o : opts) {
        if (o.first == "binpath=") {
            c.binPath = o.second;
        } else if (o.first == "displayname=") {
            c.displayName = o.second;
            c.hasDisplayName = true;
        } else if (o.first == "start=") {
            if (o.second == "auto")
                c.startType = SERVICE_AUTO_START;
            else if (o.second == "demand")
                c.startType = SERVICE_DEMAND_START;
            else if (o.second == "disabled")
                c.startType = SERVICE_DISABLED;
            else
                return false;
        } else {
            return false;
        }
    }
    return !c.binPath.empty();
}

bool queryOptions(const Options &opts, Command &c)
{
    for (auto &o : opts) {
        if (o.first != "state=")
            return false;
        if (o.second == "all")
            c.state = SERVICE_STATE_ALL;
        else if (o.second == "inactive")
            c.state = SERVICE_INACTIVE;
        else if (o.second == "active")
            c.state = SERVICE_ACTIVE;
        else
            return false;
    }
    return true;
}

} // namespace

bool parseCommand(int argc, const char *const *argv, Command &out)
{
    out = Command();
    if (argc < 2 || !argv[1])
        return false;
    static const struct {
        const char *word;
        Command::Verb verb;
    } kVerbs[] = {{"create", Command::Create}, {"delete", Command::Delete},     {"start", Command::Start},
                  {"stop", Command::Stop},     {"pause", Command::Pause},       {"continue", Command::Continue},
                  {"interrogate", Command::Interrogate}, {"query", Command::Query}};
    std::string cmd = tsp::foldLower(argv[1]);
    bool known = false;
    for (auto &v : kVerbs) {
        if (cmd == v.word) {
            out.verb = v.verb;
            known = true;
        }
    }
    if (!known)
        return false;
    if (out.verb == Command::Query && (argc < 3 || strchr(argv[2], '='))) {
        out.verb = Command::QueryAll;
        Options opts;
        return options(argc, argv, 2, opts) && queryOptions(opts, out);
    }
    if (argc < 3)
        return false;
    out.name = argv[2];
    switch (out.verb) {
    case Command::Create: {
        Options opts;
        return options(argc, argv, 3, opts) && createOptions(opts, out);
    }
    case Command::Start:
        out.args.assign(argv + 3, argv + argc);
        return true;
    case Command::Query:
        return true; // words after the name are passed over, as before
    default:
        return argc == 3;
    }
}

} // namespace tssc
