// A writer of diagnostic files for the multi-process tests. Every mode
// first makes DIR the current directory, so NAME may be a bare name.
//   diagwriter hold DIR NAME TEXT
//     writes TEXT to a stream on NAME, then creates "ready-TEXT" in DIR and
//     holds the file until it is killed (exit 3 after kWaitBound).
//   diagwriter exit DIR NAME TEXT
//     writes TEXT and ends at once with _Exit(5): no clean-up of any kind.
//   diagwriter crowd DIR NAME
//     ten streams on NAME, each writing its number; the tenth finds no name
//     left and ends the process with 1 (exit 0 would be wrong).
//   diagwriter write DIR NAME
//     writes "x" to NAME; exit 0 if the write returns.
//   diagwriter service DIR NAME
//     runs as a service whose start writes "x" to a service stream on NAME.
// Exit codes: 2 bad arguments, 3 a holder that was not killed.
#include <DDUMPC.h>
#include <GenSvc.h>

#include "TestSupport.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

namespace {

std::string dir, name;

// A file and its stream, destroyed in the right order.
struct Stream {
    Stream() : dc(&file, TRUE, name.c_str()) {}
    CFile file;
    DiagDumpContext dc;
};

// A service whose start opens a diagnostic file that cannot be opened.
class WritingService : public GenericService {
public:
    WritingService() : GenericService("TSDiagWriter", "TSUtil diagnostic writer", TRUE, 1000) {}

protected:
    BOOLTYPE InitPrimaryService() override
    {
        Stream s;
        s.dc.SetServiceFlag();
        s.dc << "x"; // concludes the service and ends the process
        return FALSE;
    }
};

bool Touch(const std::string &file)
{
    HANDLE h = CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    return h != INVALID_HANDLE_VALUE && CloseHandle(h);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 4 || !SetCurrentDirectoryA(argv[2])) {
        fprintf(stderr, "usage: diagwriter MODE DIR NAME [TEXT]\n");
        return 2;
    }
    std::string mode = argv[1];
    dir = argv[2];
    name = argv[3];
    if (mode == "hold" && argc == 5) {
        Stream s;
        s.dc << argv[4];
        if (!Touch(dir + "\\ready-" + argv[4]))
            return 2;
        Sleep(tstest::kWaitBound);
        return 3;
    }
    if (mode == "exit" && argc == 5) {
        Stream s;
        s.dc << argv[4];
        _Exit(5);
    }
    if (mode == "crowd") {
        std::vector<std::unique_ptr<Stream>> streams;
        for (int i = 1; i <= 10; ++i) {
            streams.push_back(std::make_unique<Stream>());
            streams.back()->dc << i;
        }
        return 0;
    }
    if (mode == "write") {
        Stream s;
        s.dc << "x";
        return 0;
    }
    if (mode == "service") {
        WritingService service;
        return service.Begin() ? 0 : 4;
    }
    return 2;
}
