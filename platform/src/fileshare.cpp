// Share modes of open files: the locks that hold them between processes
// and within one, and openShared, which opens a file under them.
#include "fileshare.h"

#include "check.h"
#include "path.h"
#include "winpath.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tsp {

namespace {

// Share modes are kept as open-file-description locks on bytes far beyond
// any data: a shared lock on a "has" byte for each access the open holds,
// and on a "deny" byte for each access its share mode refuses. Locks of
// one description never conflict with each other, so a test for another
// description's lock (F_OFD_GETLK with a write lock) finds the other opens
// only.
//
// The six bytes lie so that the opens met most (reading or writing, with
// or without sharing reading) hold one run of adjacent bytes, taken with
// one call: deny delete, deny write, has read, has write, has delete,
// deny read. An open's test first asks about the whole span of the bytes
// it must not find held, in one call; only when that finds a lock does it
// look run by run.
//
// Every open takes its bytes first and tests the others' afterwards, and
// gives its bytes back when the test finds a conflict. Of two opens that
// conflict, at least one therefore sees the other, whatever their order:
// never do both succeed. An open that finds no conflict is done (two
// system calls, for the opens above). One that finds a conflict may have
// met an open racing it in the same instant, which sees it too and gives
// up as well; so it tries once more under an exclusive flock of the file,
// where such second tries follow each other one at a time. Of two racing
// opens the first to take the flock either still sees the other's first
// bytes and fails, and then the other succeeds under the flock, or sees
// none and succeeds, and then the other fails: one of the two holds the
// file. Only a third open in that same instant can make both fail.
constexpr off_t kShareBase = 0x7FFFFFFFFFFF0000LL;
constexpr unsigned kShareBytes = 6;
constexpr unsigned ReadBit = 1, WriteBit = 2, DeleteBit = 4;

// The byte masks of the accesses in mask (read, write, delete).
unsigned hasBytes(unsigned mask)
{
    return ((mask & ReadBit) ? 4 : 0) | ((mask & WriteBit) ? 8 : 0) | ((mask & DeleteBit) ? 16 : 0);
}
unsigned denyBytes(unsigned mask)
{
    return ((mask & ReadBit) ? 32 : 0) | ((mask & WriteBit) ? 2 : 0) | ((mask & DeleteBit) ? 1 : 0);
}

// The runs of adjacent bits in a mask of the share bytes: (first bit, count).
template <class Run>
void forEachRun(unsigned mask, Run run)
{
    for (unsigned b = 0; b < kShareBytes;) {
        if (!(mask & (1u << b))) {
            ++b;
            continue;
        }
        unsigned n = 0;
        while (b + n < kShareBytes && (mask & (1u << (b + n))))
            ++n;
        run(b, n);
        b += n;
    }
}

struct flock shareLock(short type, off_t first, off_t count)
{
    struct flock fl = {};
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = kShareBase + first;
    fl.l_len = count;
    return fl;
}

bool lockingUnsupported(int err) { return err == ENOLCK || err == EINVAL || err == EOPNOTSUPP; }

// Another description's lock over first .. first + count - 1, as a mask of
// the share bytes it covers (never 0 for a lock found); 0 when there is
// none, or when the file system keeps no locks.
unsigned otherLockOn(int fd, unsigned first, unsigned count)
{
    struct flock fl = shareLock(F_WRLCK, first, count);
    if (fcntl(fd, F_OFD_GETLK, &fl) != 0) {
        TS_CHECK(lockingUnsupported(errno), "fcntl(F_OFD_GETLK) of share bytes");
        return 0; // no locks, no share modes
    }
    if (fl.l_type == F_UNLCK)
        return 0;
    off_t from = fl.l_start - kShareBase, to = fl.l_len == 0 ? kShareBytes : from + fl.l_len;
    unsigned covered = 0;
    for (off_t b = from < 0 ? 0 : from; b < to && b < static_cast<off_t>(kShareBytes); ++b)
        covered |= 1u << b;
    return covered ? covered : 1u << first;
}

// Whether another open holds one of the share bytes in mask.
bool othersHold(int fd, unsigned mask)
{
    if (!mask)
        return false;
    unsigned first = static_cast<unsigned>(__builtin_ctz(mask));
    unsigned last = 31u - static_cast<unsigned>(__builtin_clz(mask));
    unsigned found = otherLockOn(fd, first, last - first + 1);
    if (!found)
        return false;
    if (found & mask)
        return true;
    // Something held between the bytes that count: look run by run.
    bool held = false;
    forEachRun(mask, [&](unsigned b, unsigned n) { held = held || otherLockOn(fd, b, n) != 0; });
    return held;
}

// Takes the share bytes in mask. A file system without these locks, or a
// write-only descriptor, keeps no share modes.
void hold(int fd, unsigned mask)
{
    forEachRun(mask, [&](unsigned b, unsigned n) {
        struct flock fl = shareLock(F_RDLCK, b, n);
        if (fcntl(fd, F_OFD_SETLK, &fl) != 0)
            TS_CHECK(lockingUnsupported(errno) || errno == EBADF, "fcntl(F_OFD_SETLK) of share bytes");
    });
}

void releaseAll(int fd)
{
    struct flock fl = shareLock(F_UNLCK, 0, kShareBytes);
    if (fcntl(fd, F_OFD_SETLK, &fl) != 0)
        TS_CHECK(lockingUnsupported(errno) || errno == EBADF, "fcntl(F_OFD_SETLK) releasing share bytes");
}

// Takes this open's bytes and tests the others'; on a conflict gives its
// bytes back and says false.
bool takeAndTest(int fd, unsigned held, unsigned conflicting)
{
    hold(fd, held);
    if (othersHold(fd, conflicting)) {
        releaseAll(fd);
        return false;
    }
    return true;
}

// Tests the share mode against the other opens and takes this open's
// bytes, as the comment above the bytes tells. False when they conflict.
bool claimShare(int fd, DWORD access, DWORD share)
{
    unsigned asks = ((access & kReadRights) ? ReadBit : 0) | ((access & kWriteRights) ? WriteBit : 0) |
                    ((access & kDeleteRights) ? DeleteBit : 0);
    if (!asks)
        return true; // an open for attributes only takes part in no share check
    unsigned denies = ((share & FILE_SHARE_READ) ? 0 : ReadBit) | ((share & FILE_SHARE_WRITE) ? 0 : WriteBit) |
                      ((share & FILE_SHARE_DELETE) ? 0 : DeleteBit);
    unsigned held = hasBytes(asks) | denyBytes(denies);
    unsigned conflicting = denyBytes(asks) | hasBytes(denies);
    if (takeAndTest(fd, held, conflicting))
        return true;
    int locked;
    while ((locked = flock(fd, LOCK_EX)) != 0 && errno == EINTR) {
    }
    // Without the flock, racing opens may both fail, but that is no reason
    // to refuse this one at once.
    TS_CHECK(locked == 0 || errno == ENOLCK || errno == EOPNOTSUPP, "flock(LOCK_EX) of a share check");
    bool ok = takeAndTest(fd, held, conflicting);
    if (locked == 0)
        TS_CHECK(flock(fd, LOCK_UN) == 0, "flock(LOCK_UN) of a share check");
    return ok;
}

} // namespace

bool othersDenyDelete(int fd) { return othersHold(fd, denyBytes(DeleteBit)); }

int openShared(std::string &posixPath, DWORD access, DWORD share, DWORD disposition, DWORD flagsAndAttributes,
               bool append, DWORD &error, bool &existed, bool *isDirectory, size_t caseBase)
{
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) {
        error = ERROR_INVALID_PARAMETER;
        return -1;
    }
    bool wantWrite = access & kWriteRights;
    bool truncates = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
    int flags = O_CLOEXEC | (wantWrite || truncates ? O_RDWR : O_RDONLY) | (append ? O_APPEND : 0);
    mode_t mode = (flagsAndAttributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0666;
    // The file is opened first and looked at through the descriptor: an
    // existing file is opened without O_CREAT, a missing one created with
    // O_EXCL, so that existed is exact even when others create or remove
    // the file at the same time.
    int fd = -1, err = 0;
    // A name that is not there as written may be there in other case: that
    // is looked for before a new file is made, and once only.
    bool caseMatched = caseBase == std::string::npos;
    if (!caseMatched && disposition == CREATE_NEW) {
        matchCaseBelow(caseBase, posixPath);
        caseMatched = true;
    }
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        if (disposition != CREATE_NEW) {
            existed = true;
            fd = open(posixPath.c_str(), flags, mode);
            // A folder asked for writing opens for reading, and only with
            // backup semantics; without them EISDIR is "access denied".
            if (fd < 0 && errno == EISDIR && (flagsAndAttributes & FILE_FLAG_BACKUP_SEMANTICS))
                fd = open(posixPath.c_str(), O_CLOEXEC | O_RDONLY | O_DIRECTORY);
            if (fd < 0 && errno == EACCES && (flags & O_ACCMODE) == O_RDWR && !truncates && !(access & kReadRights))
                // Write-only to a file that may not be read: no share locks then.
                fd = open(posixPath.c_str(), (flags & ~O_ACCMODE) | O_WRONLY, mode);
            err = errno;
            if (fd < 0 && err == ENOENT && !caseMatched) {
                caseMatched = true;
                if (matchCaseBelow(caseBase, posixPath))
                    continue;
            }
            if (fd >= 0 || err != ENOENT || disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING)
                break;
        }
        existed = false;
        fd = open(posixPath.c_str(), flags | O_CREAT | O_EXCL, mode);
        err = errno;
        if (fd >= 0 || err != EEXIST || disposition == CREATE_NEW)
            break;
    }
    if (fd < 0) {
        error = err == EEXIST ? ERROR_FILE_EXISTS : win32ErrorFromErrno(err, posixPath);
        return -1;
    }
    if (existed) {
        struct stat st;
        TS_CHECK(fstat(fd, &st) == 0, "fstat of an open file");
        bool dir = S_ISDIR(st.st_mode);
        if (isDirectory)
            *isDirectory = dir;
        // The read-only attribute holds for every user, root included.
        if ((dir && !(flagsAndAttributes & FILE_FLAG_BACKUP_SEMANTICS)) ||
            (readOnlyMode(st) && (wantWrite || truncates))) {
            closeDescriptor(fd);
            error = ERROR_ACCESS_DENIED;
            return -1;
        }
    } else if (isDirectory) {
        *isDirectory = false;
    }
    if (!claimShare(fd, access, share)) {
        closeDescriptor(fd);
        error = ERROR_SHARING_VIOLATION;
        return -1;
    }
    // Emptied only now that the share check has passed.
    if (truncates && existed && ftruncate(fd, 0) != 0) {
        error = win32ErrorFromErrno(errno, posixPath);
        closeDescriptor(fd);
        return -1;
    }
    error = existed && (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS) ? ERROR_ALREADY_EXISTS
                                                                                     : ERROR_SUCCESS;
    return fd;
}

} // namespace tsp
