#include "host/files/SystemError.h"

#include <cerrno>
#include <system_error>

namespace Qx::Host {

namespace {

/// Empty where the meaning says enough, or nothing helps.
const char* remedyOf(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return "free some, or choose another place";
    case EACCES:
    case EPERM:
        return "check the permissions of the file and of its directories, or choose another place";
    case EROFS:
        return "choose another place";
    case EFBIG:
        return "raise the limit on the size of files (ulimit -f), or choose a file system that takes such "
               "files";
    case EMFILE:
    case ENFILE:
        return "raise the limit on open files (ulimit -n), or end other programs";
    case ENOMEM:
        return "end other programs, or raise the limit on memory (ulimit -v)";
    case EAGAIN:
        return "raise the limit on processes (ulimit -u), or end other programs";
    case ENOENT:
        return "check the path";
    case ENOTDIR:
        return "check the path, of which a part is a file";
    case ELOOP:
        return "check the symbolic links of the path";
    case ENAMETOOLONG:
        return "choose a shorter name";
    case EIO:
        return "check the disk";
    case ENXIO:
    case ENODEV:
    case ESTALE:
    case ENOTCONN:
    case EHOSTDOWN:
    case ETIMEDOUT:
        return "check that its device or network is connected";
    case EBUSY:
    case ETXTBSY:
        return "end the program that uses it";
    default:
        return "";
    }
}

} // namespace

std::string systemProblem(int error)
{
    const std::string remedy = remedyOf(error);
    return std::generic_category().message(error) + (remedy.empty() ? "" : "; " + remedy);
}

} // namespace Qx::Host
