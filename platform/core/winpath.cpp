// Windows paths at the layer's boundary: the one translation that the
// file calls and the service manager (a service's ImagePath) share. The
// rules are in fileapi.h.
#include "winpath.h"

#include "casefold.h"
#include "machineroot.h"

#include <windows.h>

#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <vector>

namespace tsp {

namespace {

bool isSep(char c) { return c == '\\' || c == '/'; }

// The POSIX folder of a drive: "" for z: (the file system's root).
bool driveRoot(char letter, std::string &base)
{
    letter = asciiLower(letter);
    if (letter == 'z') {
        base.clear();
        return true;
    }
    const std::string &root = machineRoot();
    if (root.empty())
        return false;
    if (letter == 'c') {
        base = root + "/drive_c";
        // The system drive always exists: made once for each machine root.
        thread_local std::string madeFor;
        if (madeFor != root) {
            mkdir(base.c_str(), 0755);
            madeFor = root;
        }
        return true;
    }
    base = root + "/dosdevices/" + letter + ":";
    struct stat st;
    return stat(base.c_str(), &st) == 0;
}

// The drive of a POSIX path: its letter, its folder and the rest.
char driveOf(const std::string &posixPath, std::string &base, std::string &rest)
{
    const std::string &root = machineRoot();
    if (!root.empty()) {
        std::string c = root + "/drive_c";
        if (posixPath.compare(0, c.size(), c) == 0 && (posixPath.size() == c.size() || posixPath[c.size()] == '/')) {
            base = c;
            rest = posixPath.substr(c.size());
            return 'c';
        }
    }
    base.clear();
    rest = posixPath;
    return 'z';
}

// Joins base and the components of rest, with "." and ".." resolved by
// name and never above base.
std::string join(const std::string &base, const std::string &rest)
{
    std::vector<std::string> parts;
    size_t i = 0;
    while (i < rest.size()) {
        while (i < rest.size() && isSep(rest[i]))
            ++i;
        size_t j = i;
        while (j < rest.size() && !isSep(rest[j]))
            ++j;
        if (j > i) {
            std::string part = rest.substr(i, j - i);
            if (part == "..") {
                if (!parts.empty())
                    parts.pop_back();
            } else if (part != ".") {
                parts.push_back(part);
            }
        }
        i = j;
    }
    std::string out = base;
    for (const std::string &p : parts)
        out += "/" + p;
    if (parts.empty())
        out += "/";
    else if (!rest.empty() && isSep(rest.back()))
        out += "/";
    return out;
}

bool isBelow(const std::string &path, const std::string &folder)
{
    return path.compare(0, folder.size(), folder) == 0 && (path.size() == folder.size() || path[folder.size()] == '/');
}

// True when the POSIX path, resolved as the file calls would resolve it,
// lies outside root (canonical): through a symbolic link, an existing one
// or a dangling one that a create would follow. The part of the path that
// does not exist yet is passed over: a missing folder ends the calls that
// use it anyway, and a name made there lands in the resolved parent.
bool leavesRoot(std::string path, const std::string &root)
{
    for (int links = 0; links < 40;) {
        while (path.size() > 1 && path.back() == '/')
            path.pop_back();
        char resolved[PATH_MAX];
        if (realpath(path.c_str(), resolved))
            return !isBelow(resolved, root);
        if (errno != ENOENT && errno != ENOTDIR)
            return false; // a loop or a folder not to be read: the call itself fails
        size_t cut = path.rfind('/');
        if (cut == std::string::npos)
            return false;
        std::string parent = cut == 0 ? "/" : path.substr(0, cut);
        char target[PATH_MAX];
        ssize_t n = readlink(path.c_str(), target, sizeof target - 1);
        if (n > 0) {
            target[n] = 0;
            path = target[0] == '/' ? std::string(target) : parent + "/" + target;
            ++links;
        } else {
            path = parent;
        }
    }
    return true; // more links than the kernel follows
}

// The entry of folder named name but for the case of ASCII letters; of
// several, the first in byte order, so that the choice does not hang on
// the order of the folder. False when there is none.
bool findNoCase(const std::string &folder, const std::string &name, std::string &found)
{
    DIR *d = opendir(folder.empty() ? "/" : folder.c_str());
    if (!d)
        return false;
    found.clear();
    while (dirent *e = readdir(d)) {
        std::string entry = e->d_name;
        if (equalNoCase(entry, name) && (found.empty() || entry < found))
            found = entry;
    }
    closedir(d);
    return !found.empty();
}

bool exists(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

// The path of name in folder as it exists, exactly or but for case; false
// when it exists in no case.
bool lookUp(const std::string &folder, const std::string &name, std::string &path)
{
    std::string found;
    if (exists(folder + "/" + name))
        found = name;
    else if (!findNoCase(folder, name, found))
        return false;
    path = folder + "/" + found;
    return true;
}

// Gives the components of path below base the case of the entries that
// exist, as Windows matches names: a path that exists as written is taken
// at once; otherwise each component that is missing as written is looked
// up without case in its folder. From the first component that exists in
// no case on, the rest stays as written, so a new name keeps its case.
void matchCase(const std::string &base, std::string &path)
{
    bool slashAtEnd = path.size() > base.size() + 1 && path.back() == '/';
    std::string whole = slashAtEnd ? path.substr(0, path.size() - 1) : path;
    if (whole.size() <= base.size() + 1 || exists(whole))
        return;
    // Most often only the last component is new or in other case: start
    // there when its folder exists as written.
    size_t from = whole.rfind('/');
    if (from <= base.size() || !exists(whole.substr(0, from)))
        from = base.size();
    std::string out = whole.substr(0, from);
    while (from < whole.size()) {
        size_t next = whole.find('/', from + 1);
        if (next == std::string::npos)
            next = whole.size();
        std::string part = whole.substr(from + 1, next - from - 1);
        std::string found;
        if (exists(out + "/" + part)) {
            out += "/" + part;
        } else if (findNoCase(out, part, found)) {
            out += "/" + found;
        } else {
            out += whole.substr(from);
            break;
        }
        from = next;
    }
    path = slashAtEnd ? out + "/" : out;
}

} // namespace

namespace {

std::string readCurrentDirectory()
{
    std::vector<char> buf(PATH_MAX);
    for (;;) {
        if (getcwd(buf.data(), buf.size()))
            return buf.data();
        if (errno != ERANGE)
            return "/";
        buf.resize(buf.size() * 2);
    }
}

// The current directory as the layer keeps it: read from the process at
// the first use, then set by changeCurrentDirectory alone.
struct CurrentDirectory {
    std::mutex lock;
    bool known = false;
    std::string path;
};

CurrentDirectory &cwdState()
{
    static CurrentDirectory *state = new CurrentDirectory; // outlives every static destructor
    return *state;
}

} // namespace

std::string currentDirectory()
{
    CurrentDirectory &cwd = cwdState();
    std::lock_guard<std::mutex> hold(cwd.lock);
    if (!cwd.known) {
        cwd.path = readCurrentDirectory();
        cwd.known = true;
    }
    return cwd.path;
}

int changeCurrentDirectory(const std::string &posixPath)
{
    CurrentDirectory &cwd = cwdState();
    std::lock_guard<std::mutex> hold(cwd.lock);
    if (chdir(posixPath.c_str()) != 0)
        return errno;
    cwd.path = readCurrentDirectory();
    cwd.known = true;
    return 0;
}

namespace {

// translateWindowsPath, with the case of the names matched at once
// (asWritten false) or, where no check needs the names as they exist, left
// as written with caseBase set to where matching would start.
uint32_t translate(const char *path, std::string &out, bool asWritten, size_t &caseBase)
{
    caseBase = std::string::npos;
    if (!path || !*path) {
        return ERROR_PATH_NOT_FOUND;
    }
    std::string p(path);
    // "\\?\" only turns off Windows' own parsing.
    if (p.size() >= 4 && isSep(p[0]) && isSep(p[1]) && p[2] == '?' && isSep(p[3]))
        p.erase(0, 4);
    if (p.empty()) {
        return ERROR_PATH_NOT_FOUND;
    }

    if (p[0] == '/' && !(p.size() > 1 && isSep(p[1]))) {
        // A POSIX absolute path: only the separators change.
        out = p;
        for (char &c : out)
            if (c == '\\')
                c = '/';
        return ERROR_SUCCESS;
    }

    std::string base, rest;
    if (isSep(p[0]) && p.size() > 1 && isSep(p[1])) {
        const std::string &root = machineRoot();
        if (root.empty()) {
            return ERROR_PATH_NOT_FOUND;
        }
        base = root + "/unc";
        rest = p.substr(1);
        // A server and a share must be named, and both must exist: a share
        // is never made by creating a folder.
        std::string server, share;
        size_t i = 2;
        while (i < p.size() && !isSep(p[i]))
            server += p[i++];
        while (i < p.size() && isSep(p[i]))
            ++i;
        while (i < p.size() && !isSep(p[i]))
            share += p[i++];
        if (server.empty() || share.empty() || server == "." || server == "..") {
            return ERROR_BAD_PATHNAME;
        }
        std::string serverDir, shareDir;
        if (!lookUp(base, server, serverDir)) {
            return ERROR_BAD_NETPATH;
        }
        if (share == "." || share == ".." || !lookUp(serverDir, share, shareDir)) {
            return ERROR_BAD_NET_NAME;
        }
    } else if (p.size() >= 2 && p[1] == ':' && isalpha(static_cast<unsigned char>(p[0]))) {
        if (!driveRoot(p[0], base)) {
            return ERROR_PATH_NOT_FOUND;
        }
        rest = p.substr(2);
        if (rest.empty() || !isSep(rest[0])) {
            // Drive-relative: below the current directory when it lies on
            // that drive, else below the drive's root.
            std::string cwdBase, cwdRest;
            char cur = driveOf(currentDirectory(), cwdBase, cwdRest);
            if (cur == asciiLower(p[0]))
                rest = cwdRest + "/" + rest;
            else
                rest = "/" + rest;
        }
    } else if (isSep(p[0])) {
        std::string cwdRest;
        driveOf(currentDirectory(), base, cwdRest);
        rest = p;
    } else {
        std::string cwdRest;
        driveOf(currentDirectory(), base, cwdRest);
        rest = cwdRest + "/" + p;
    }
    out = join(base, rest);
    // The machine root's own drives (c: and the UNC folder) keep to it: a
    // symbolic link inside that leads out is refused, as ".." is kept
    // below the drive's root above. z: and the dosdevices drives lead
    // where they were meant to.
    const std::string &root = machineRoot();
    bool keptInRoot = !root.empty() && isBelow(base, root) && base.compare(root.size(), 12, "/dosdevices/") != 0;
    if (asWritten && !keptInRoot) {
        caseBase = base.size();
        return ERROR_SUCCESS;
    }
    if (keptInRoot) {
        // What exists as written needs no case matching, and where it
        // leads is then known at once.
        std::string whole = out;
        while (whole.size() > 1 && whole.back() == '/')
            whole.pop_back();
        char resolved[PATH_MAX];
        if (realpath(whole.c_str(), resolved))
            return isBelow(resolved, root) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
    }
    matchCase(base, out);
    if (keptInRoot && leavesRoot(out, root))
        return ERROR_ACCESS_DENIED;
    return ERROR_SUCCESS;
}

} // namespace

uint32_t translateWindowsPath(const char *path, std::string &out)
{
    size_t caseBase;
    return translate(path, out, false, caseBase);
}

uint32_t translateWindowsPathAsWritten(const char *path, std::string &out, size_t &caseBase)
{
    return translate(path, out, true, caseBase);
}

bool matchCaseBelow(size_t caseBase, std::string &path)
{
    if (caseBase == std::string::npos || caseBase > path.size())
        return false;
    std::string before = path;
    matchCase(path.substr(0, caseBase), path);
    return path != before;
}

std::string windowsFormOf(const std::string &posixPath)
{
    std::string base, rest;
    char drive = driveOf(posixPath, base, rest);
    std::string out(1, asciiUpper(drive));
    out += ':';
    if (rest.empty())
        rest = "/";
    for (char c : rest)
        out += c == '/' ? '\\' : c;
    return out;
}

} // namespace tsp
