// What the kernel offers to a process that holds secrets.
#include "platform/ProcessProtection.h"

#include <sys/prctl.h>
#include <sys/resource.h>

namespace Tessarin::Platform {

void keepMemoryPrivate()
{
    // Both are refused only for values that do not exist.
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
}

} // namespace Tessarin::Platform
