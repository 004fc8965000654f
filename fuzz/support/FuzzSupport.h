// What the fuzz targets share: a scratch machine root that nothing may
// leave, and the input cut into command-line words.
#pragma once

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <dirent.h>

#include <string>
#include <vector>

namespace tsfuzz {

inline int removeEntry(const char *path, const struct stat *, int, struct FTW *level)
{
    if (level->level > 0 && remove(path) != 0) {
        perror(path);
        abort();
    }
    return 0;
}

// A machine root made once per process at <fence>/root; the fence folder
// holds nothing else, so anything that appears beside the root escaped it.
class ScratchRoot {
public:
    ScratchRoot()
    {
        char tmpl[] = "/tmp/tsutil-fuzz-XXXXXX";
        if (!mkdtemp(tmpl))
            abort();
        fence_ = tmpl;
        root_ = fence_ + "/root";
        setenv("TSUTIL_ROOT", root_.c_str(), 1);
    }
    const std::string &root() const { return root_; }
    // Empties a folder below the root (drive_c after each input).
    void empty(const std::string &folder) const
    {
        if (access(folder.c_str(), F_OK) == 0 && nftw(folder.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS) != 0)
            abort();
    }
    // Aborts when anything but the root stands in the fence folder.
    void checkFence() const
    {
        DIR *d = opendir(fence_.c_str());
        if (!d)
            abort();
        while (dirent *e = readdir(d)) {
            std::string n = e->d_name;
            if (n != "." && n != ".." && n != "root") {
                fprintf(stderr, "written outside the machine root: %s/%s\n", fence_.c_str(), n.c_str());
                abort();
            }
        }
        closedir(d);
    }

private:
    std::string fence_, root_;
};

// The input as words separated by NUL bytes, with a program name in front.
struct Words {
    Words(const uint8_t *data, size_t size, const char *program)
    {
        words.emplace_back(program);
        std::string cur;
        for (size_t i = 0; i < size; ++i) {
            if (data[i] == 0) {
                words.push_back(cur);
                cur.clear();
            } else {
                cur += static_cast<char>(data[i]);
            }
        }
        if (!cur.empty())
            words.push_back(cur);
        for (const std::string &w : words)
            argv.push_back(w.c_str());
        argv.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(words.size()); }
    std::vector<std::string> words;
    std::vector<const char *> argv;
};

} // namespace tsfuzz
