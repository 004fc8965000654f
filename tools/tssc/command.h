// tssc's command line, read into what it asks for before any service call,
// so that reading it is one function with no side effects.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace tssc {

struct Command {
    enum Verb { Create, Delete, Start, Stop, Pause, Continue, Interrogate, Query, QueryAll } verb = Query;
    std::string name;                   // every verb but QueryAll
    std::string binPath, displayName;   // Create
    bool hasDisplayName = false;        // Create: DisplayName= was given
    DWORD startType = SERVICE_DEMAND_START; // Create: start=
    DWORD state = SERVICE_ACTIVE;       // QueryAll: state=
    std::vector<std::string> args;      // Start: the service's arguments
};

// Reads argv[1..argc-1] (argv[0] is the program). False when the words do
// not form a command: the caller prints the usage.
bool parseCommand(int argc, const char *const *argv, Command &out);

} // namespace tssc
