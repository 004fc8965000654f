// The diagnostic stream's text: any pieces written one by one reach the
// file as a reference written here says: each piece cut to its first 280
// bytes, then every line feed that does not follow a carriage return of the
// same piece written as CR LF; nothing added, nothing lost.
#include "DDUMPC.h"

#include "FuzzSupport.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

namespace {

std::string reference(const std::string &piece)
{
    std::string cut = piece.substr(0, 280), out;
    char previous = 0;
    for (char c : cut) {
        if (c == '\n' && previous != '\r')
            out += '\r';
        out += c;
        previous = c;
    }
    return out;
}

std::string contents(const std::string &path)
{
    std::string text;
    if (FILE *f = fopen(path.c_str(), "rb")) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0)
            text.append(buf, n);
        fclose(f);
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static tsfuzz::ScratchRoot scratch;
    static const std::string path = scratch.root() + "/stream.txt";
    // Pieces are the input's NUL-separated parts: a piece is a C string.
    std::string input(reinterpret_cast<const char *>(data), size), expected;
    {
        CFile file;
        DiagDumpContext stream(&file, TRUE, path.c_str());
        size_t from = 0;
        for (;;) {
            size_t end = input.find('\0', from);
            std::string piece = input.substr(from, end == std::string::npos ? std::string::npos : end - from);
            stream.Diag_OutputString(piece.c_str());
            expected += reference(piece);
            if (end == std::string::npos)
                break;
            from = end + 1;
        }
    }
    if (contents(path) != expected)
        abort();
    return 0;
}
