// tssc's command line, read into what it asks for before any service call,
// so that reading it is one function with no side effects. The words are
// UTF-8.
//
// The grammar is sc.exe's: a verb (without case), a service name, then
// options as "name=" and the value in the next word (names and the values
// of a choice without case). The space after '=' belongs to the grammar:
// "binpath=/x" is no option, and where a name may stand ("query
// state=all") such a word is the name.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace tssc {

struct Command {
    enum Verb {
        Create, Config, Description, Qc, QDescription, GetDisplayName, GetKeyName,
        Query, QueryEx, Start, Stop, Pause, Continue, Interrogate, Delete
    } verb = Query;
    std::string name; // the service's name (getkeyname: its display name); empty for a query of all

    // create and config: what is given.
    std::optional<DWORD> type, start, errorControl;
    bool delayedAuto = false;  // start= delayed-auto (start is then SERVICE_AUTO_START)
    std::optional<std::string> binPath, group, depend, obj, password, displayName, description;

    // description: the text (empty removes it).
    std::string text;

    // query and queryex of all services.
    DWORD queryType = SERVICE_WIN32;
    DWORD state = SERVICE_ACTIVE;
    DWORD bufSize = 4096;
    DWORD resumeIndex = 0;

    // start: the service's arguments.
    std::vector<std::string> args;
};

enum class ParseResult {
    Ok,
    Usage,        // no verb or an unknown one: the general usage
    VerbUsage,    // the verb's words are wrong: the verb's usage
};

// Reads argv[1..argc-1] (argv[0] is the program).
ParseResult parseCommand(int argc, const char *const *argv, Command &out);

// The usage text of the verb (after VerbUsage), or the general one.
std::string usageText(ParseResult result, const Command &c);

} // namespace tssc
