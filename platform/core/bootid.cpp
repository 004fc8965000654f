// The boot id, from /proc.
#include "bootid.h"

#include <fcntl.h>
#include <unistd.h>

namespace tsp {

std::string bootId()
{
    std::string id;
    int fd = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        char buf[64];
        ssize_t n = read(fd, buf, sizeof buf);
        if (n > 0)
            id.assign(buf, static_cast<size_t>(n));
        close(fd);
    }
    while (!id.empty() && (id.back() == '\n' || id.back() == ' '))
        id.pop_back();
    return id;
}

} // namespace tsp
