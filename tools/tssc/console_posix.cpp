// tssc's words and text on POSIX: UTF-8 both ways.
#include "console.h"

#include <stdio.h>

namespace tssc {

std::vector<std::string> arguments(int argc, char **argv) { return std::vector<std::string>(argv, argv + argc); }

void writeText(const std::string &utf8) { fwrite(utf8.data(), 1, utf8.size(), stdout); }

} // namespace tssc
