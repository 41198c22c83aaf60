#include "qx/socket.h"

#include <cerrno>
#include <cstring>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

int32_t QX_OS_Socket(int32_t domain, int32_t type, int32_t protocol)
{
    return socket(domain, type | SOCK_CLOEXEC, protocol);
}

int32_t QX_OS_Bind(int32_t fd, const void *address, uint32_t size)
{
    return bind(fd, static_cast<const sockaddr *>(address), size);
}

int32_t QX_OS_Sendto(int32_t fd, const void *bytes, uint32_t size, int32_t flags, const void *address,
                     uint32_t addressSize)
{
    return static_cast<int32_t>(
        sendto(fd, bytes, size, flags, static_cast<const sockaddr *>(address), addressSize));
}

int32_t QX_OS_Recv(int32_t fd, void *bytes, uint32_t size, int32_t flags)
{
    return static_cast<int32_t>(recv(fd, bytes, size, flags));
}

int32_t QX_OS_IoctlSocket(int32_t fd, unsigned long request, void *argument)
{
    return ioctl(fd, request, argument);
}

int32_t QX_OS_Close(int32_t fd)
{
    return close(fd);
}

int32_t QX_OS_CloseSocket(int32_t fd)
{
    return close(fd);
}

int32_t QX_OS_GetLastErr(void)
{
    return errno;
}

// strerror() may write the words for an unknown number where another thread reads them.
const char *QX_OS_StrError(int32_t error)
{
    const char *const words = strerrordesc_np(error);
    return words != nullptr ? words : "Unknown error";
}
