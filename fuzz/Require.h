// How a fuzz target says that something is not as it must be: it stops the program, and the input is kept.
#pragma once

#include <cstdlib>

namespace Tessarin::Fuzz {

inline void require(bool holds)
{
    if (!holds)
        std::abort();
}

} // namespace Tessarin::Fuzz
