// Reading tssc's command line.
#include "command.h"

#include "casefold.h"

#include <stdlib.h>

namespace tssc {

namespace {

struct Choice {
    const char *word;
    DWORD value;
};

// The value of a choice, without case; false for another word.
template <size_t N>
bool choose(const std::string &word, const Choice (&choices)[N], DWORD &out)
{
    std::string w = tsp::foldLower(word);
    for (const Choice &c : choices)
        if (w == c.word) {
            out = c.value;
            return true;
        }
    return false;
}

bool isOption(const std::string &word) { return word.size() > 1 && word.back() == '='; }

bool number(const std::string &word, DWORD &out)
{
    if (word.empty() || word.find_first_not_of("0123456789") != std::string::npos || word.size() > 9)
        return false;
    out = static_cast<DWORD>(strtoul(word.c_str(), nullptr, 10));
    return true;
}

// create's and config's options.
bool configOption(const std::string &name, const std::string &value, Command &c)
{
    static const Choice kTypes[] = {{"own", SERVICE_WIN32_OWN_PROCESS},
                                    {"share", SERVICE_WIN32_SHARE_PROCESS},
                                    {"interact", SERVICE_INTERACTIVE_PROCESS},
                                    {"kernel", SERVICE_KERNEL_DRIVER},
                                    {"filesys", SERVICE_FILE_SYSTEM_DRIVER},
                                    {"rec", SERVICE_RECOGNIZER_DRIVER},
                                    {"adapt", SERVICE_ADAPTER}};
    static const Choice kStarts[] = {{"boot", SERVICE_BOOT_START},     {"system", SERVICE_SYSTEM_START},
                                     {"auto", SERVICE_AUTO_START},     {"demand", SERVICE_DEMAND_START},
                                     {"disabled", SERVICE_DISABLED},   {"delayed-auto", 0xFFFF}};
    static const Choice kErrors[] = {{"normal", SERVICE_ERROR_NORMAL},
                                     {"severe", SERVICE_ERROR_SEVERE},
                                     {"critical", SERVICE_ERROR_CRITICAL},
                                     {"ignore", SERVICE_ERROR_IGNORE}};
    DWORD v = 0;
    if (name == "type=") {
        if (!choose(value, kTypes, v))
            return false;
        // "type= interact" goes with "type= own" or "type= share".
        c.type = c.type.value_or(0) | v;
        return true;
    }
    if (name == "start=") {
        if (!choose(value, kStarts, v))
            return false;
        c.delayedAuto = v == 0xFFFF;
        c.start = c.delayedAuto ? static_cast<DWORD>(SERVICE_AUTO_START) : v;
        return true;
    }
    if (name == "error=") {
        if (!choose(value, kErrors, v))
            return false;
        c.errorControl = v;
        return true;
    }
    struct Text {
        const char *name;
        std::optional<std::string> Command::*field;
    };
    static const Text kTexts[] = {{"binpath=", &Command::binPath},         {"group=", &Command::group},
                                  {"depend=", &Command::depend},           {"obj=", &Command::obj},
                                  {"password=", &Command::password},       {"displayname=", &Command::displayName},
                                  {"description=", &Command::description}};
    for (const Text &t : kTexts)
        if (name == t.name) {
            c.*t.field = value;
            return true;
        }
    return false;
}

bool queryOption(const std::string &name, const std::string &value, Command &c)
{
    static const Choice kTypes[] = {{"service", SERVICE_WIN32},
                                    {"own", SERVICE_WIN32_OWN_PROCESS},
                                    {"share", SERVICE_WIN32_SHARE_PROCESS},
                                    {"interact", SERVICE_WIN32 | SERVICE_INTERACTIVE_PROCESS},
                                    {"driver", SERVICE_DRIVER},
                                    {"kernel", SERVICE_KERNEL_DRIVER},
                                    {"filesys", SERVICE_FILE_SYSTEM_DRIVER},
                                    {"rec", SERVICE_RECOGNIZER_DRIVER},
                                    {"adapt", SERVICE_ADAPTER},
                                    {"all", SERVICE_WIN32 | SERVICE_DRIVER}};
    static const Choice kStates[] = {
        {"active", SERVICE_ACTIVE}, {"inactive", SERVICE_INACTIVE}, {"all", SERVICE_STATE_ALL}};
    if (name == "type=")
        return choose(value, kTypes, c.queryType);
    if (name == "state=")
        return choose(value, kStates, c.state);
    if (name == "bufsize=")
        return number(value, c.bufSize);
    if (name == "ri=")
        return number(value, c.resumeIndex);
    return false;
}

// "name= value" pairs from argv[from] on.
template <class Take>
bool options(int argc, const char *const *argv, int from, Command &c, Take take)
{
    for (int i = from; i < argc; i += 2) {
        std::string name = tsp::foldLower(argv[i]);
        if (!isOption(name) || i + 1 >= argc || !take(name, std::string(argv[i + 1]), c))
            return false;
    }
    return true;
}

} // namespace

ParseResult parseCommand(int argc, const char *const *argv, Command &out)
{
    out = Command();
    if (argc < 2 || !argv[1])
        return ParseResult::Usage;
    static const struct {
        const char *word;
        Command::Verb verb;
    } kVerbs[] = {{"create", Command::Create},
                  {"config", Command::Config},
                  {"description", Command::Description},
                  {"qc", Command::Qc},
                  {"qdescription", Command::QDescription},
                  {"getdisplayname", Command::GetDisplayName},
                  {"getkeyname", Command::GetKeyName},
                  {"query", Command::Query},
                  {"queryex", Command::QueryEx},
                  {"start", Command::Start},
                  {"stop", Command::Stop},
                  {"pause", Command::Pause},
                  {"continue", Command::Continue},
                  {"interrogate", Command::Interrogate},
                  {"delete", Command::Delete}};
    std::string verb = tsp::foldLower(argv[1]);
    bool known = false;
    for (auto &v : kVerbs)
        if (verb == v.word) {
            out.verb = v.verb;
            known = true;
        }
    if (!known)
        return ParseResult::Usage;
    const ParseResult bad = ParseResult::VerbUsage;
    if (out.verb == Command::Query || out.verb == Command::QueryEx) {
        // A first word that is no option is the service's name.
        if (argc >= 3 && !isOption(argv[2])) {
            out.name = argv[2];
            return argc == 3 ? ParseResult::Ok : bad;
        }
        return options(argc, argv, 2, out, queryOption) ? ParseResult::Ok : bad;
    }
    if (argc < 3 || isOption(argv[2]))
        return bad;
    out.name = argv[2];
    switch (out.verb) {
    case Command::Create:
        if (!options(argc, argv, 3, out, configOption) || !out.binPath)
            return bad;
        return ParseResult::Ok;
    case Command::Config:
        return argc > 3 && options(argc, argv, 3, out, configOption) ? ParseResult::Ok : bad;
    case Command::Description:
        if (argc < 4)
            return bad;
        for (int i = 3; i < argc; ++i)
            out.text += (i > 3 ? " " : "") + std::string(argv[i]);
        return ParseResult::Ok;
    case Command::Qc:
    case Command::QDescription:
    case Command::GetDisplayName:
    case Command::GetKeyName:
        // An optional buffer size, in bytes or characters.
        if (argc == 4)
            return number(argv[3], out.bufSize) ? ParseResult::Ok : bad;
        return argc == 3 ? ParseResult::Ok : bad;
    case Command::Start:
        out.args.assign(argv + 3, argv + argc);
        return ParseResult::Ok;
    default:
        return argc == 3 ? ParseResult::Ok : bad;
    }
}

} // namespace tssc
