// The entry of a program whose application object is a CWinApp: the
// program defines no main and links this (target tsafx_main).
#include <afxwin.h>

#include <string.h>

#include <string>

namespace {

// One argument as the command line carries it: quoted when it is empty or
// holds blanks or quotes, with backslashes doubled before a quote, so that
// the usual parsing of a command line gives it back unchanged.
void AppendArgument(std::string &line, const char *arg)
{
    if (*arg && !strpbrk(arg, " \t\n\v\"")) {
        line += arg;
        return;
    }
    line += '"';
    size_t backslashes = 0;
    for (const char *p = arg;; ++p) {
        if (*p == '\\') {
            ++backslashes;
            continue;
        }
        if (!*p) {
            line.append(backslashes * 2, '\\');
            break;
        }
        if (*p == '"')
            line.append(backslashes * 2 + 1, '\\');
        else
            line.append(backslashes, '\\');
        line += *p;
        backslashes = 0;
    }
    line += '"';
}

} // namespace

int main(int argc, char **argv)
{
    std::string commandLine;
    for (int i = 1; i < argc; ++i) {
        if (i > 1)
            commandLine += ' ';
        AppendArgument(commandLine, argv[i]);
    }
    // The program's module has no resources the framework looks up, so no
    // instance handle is given; there are no windows to show.
    return AfxWinMain(nullptr, nullptr, &commandLine[0], 0);
}
