// The init system's notify socket.
#include "notify.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tsscm {

InitNotifier::InitNotifier()
{
    const char *name = getenv("NOTIFY_SOCKET");
    if (name && (name[0] == '/' || name[0] == '@') && strlen(name) < sizeof(sockaddr_un::sun_path))
        address_ = name;
    unsetenv("NOTIFY_SOCKET");
    if (!address_.empty())
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

InitNotifier::~InitNotifier()
{
    if (fd_ >= 0)
        close(fd_);
}

bool InitNotifier::send(const std::string &lines)
{
    if (fd_ < 0)
        return false;
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    memcpy(to.sun_path, address_.data(), address_.size());
    if (address_[0] == '@')
        to.sun_path[0] = '\0'; // abstract: the length, not a terminator, ends the name
    socklen_t len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size() +
                                           (address_[0] == '@' ? 0 : 1));
    return sendto(fd_, lines.data(), lines.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&to), len) ==
           static_cast<ssize_t>(lines.size());
}

} // namespace tsscm
