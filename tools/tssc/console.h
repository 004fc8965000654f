// tssc's words in and text out, as UTF-8: on POSIX the arguments and
// standard output are UTF-8 already; on Windows the words come from the
// wide command line, and the text goes to the console as UTF-16 (or, when
// standard output is not a console, in the console's output code page).
#pragma once

#include <string>
#include <vector>

namespace tssc {

// The program's words, argv[0] included.
std::vector<std::string> arguments(int argc, char **argv);
void writeText(const std::string &utf8);

} // namespace tssc
