// The registry's change counter on a shared page.
#include "regseq.h"

#include "check.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tsp {
namespace reg {

namespace {

constexpr size_t kPageSize = 4096;

} // namespace

LONG ChangeCounter::open(const std::string &path)
{
    close();
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0)
        return errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_CANTOPEN;
    struct stat st;
    if (fstat(fd_, &st) != 0 ||
        (st.st_size < static_cast<off_t>(kPageSize) && ftruncate(fd_, kPageSize) != 0)) {
        close();
        return ERROR_REGISTRY_IO_FAILED;
    }
    void *map = mmap(nullptr, kPageSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (map == MAP_FAILED) {
        close();
        return ERROR_REGISTRY_IO_FAILED;
    }
    word_ = static_cast<uint64_t *>(map);
    return ERROR_SUCCESS;
}

void ChangeCounter::close()
{
    if (word_)
        TS_CHECK(munmap(word_, kPageSize) == 0, "munmap of the registry's change counter");
    word_ = nullptr;
    if (fd_ >= 0)
        closeDescriptor(fd_);
    fd_ = -1;
}

bool ChangeCounter::lockWriters()
{
    while (flock(fd_, LOCK_EX) != 0) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

void ChangeCounter::unlockWriters()
{
    // Another writer would wait for good: the lock is ours and the
    // descriptor open.
    TS_CHECK(flock(fd_, LOCK_UN) == 0, "flock(LOCK_UN) of the registry's change counter");
}

void ChangeCounter::beginWrite()
{
    uint64_t v = value();
    store((v & 1) ? v + 2 : v + 1);
}

void ChangeCounter::endWrite()
{
    uint64_t v = value();
    if (v & 1)
        store(v + 1);
}

} // namespace reg
} // namespace tsp
