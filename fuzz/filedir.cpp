// CreateDirBranch and CreateDir on any string below drive C: of a scratch
// machine root: no crash, and nothing made outside the root, whatever
// "..", separators or names the string holds.
#include "FuzzSupport.h"

#include "FileDir.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static tsfuzz::ScratchRoot scratch;
    if (size == 0)
        return 0;
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    text = text.substr(0, text.find('\0'));
    // The first byte picks the call, the form of the path and the level.
    const std::string path = (data[0] & 2 ? "c:\\" : "c:") + text;
    if (data[0] & 1)
        GenericFile::CreateDirBranch(path.c_str(), data[0] >> 2);
    else
        CFileDirectory::CreateDir(path.c_str());
    scratch.checkFence();
    scratch.empty(scratch.root() + "/drive_c");
    return 0;
}
