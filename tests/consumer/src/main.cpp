// A program on the library alone.
#include "Scripting/Version.h"

#include <cstdio>

int main()
{
    std::puts(Scripting::Version(1, 2, 3).toString().c_str());
    return 0;
}
