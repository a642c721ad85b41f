#include "common/LocalSocketPair.h"

#include <fcntl.h>
#include <sys/socket.h>

namespace fuzzsupport {

bool makeLocalSocketPair(int (&ends)[2]) {
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return false;
    for (int end : ends) ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
    return true;
}

}  // namespace fuzzsupport
