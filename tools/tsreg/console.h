// What tsreg takes from and gives to the system as text: the command line,
// standard output and error, and file names. UTF-8 inside the program; on
// POSIX that is also the terminal's and the file system's encoding, on
// Windows the wide command line, the console's WriteConsoleW (UTF-8 bytes
// when the output is redirected) and the wide file calls.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace tsreg {

// The program's arguments in UTF-8 (argv[0] included); false with the
// argument's number in *bad when one is not valid UTF-8.
bool commandLine(int argc, char **argv, std::vector<std::string> &out, int *bad);

// Writes UTF-8 text to stdout or stderr.
void print(FILE *stream, const std::string &utf8);

// fopen of a file named in UTF-8.
FILE *openFile(const std::string &utf8Name, const char *mode);

} // namespace tsreg
