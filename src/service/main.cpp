#include <cstdio>

#include "service/version.h"

int main() {
    std::printf("%s Version %d.%d Build %d (%s)\n", vt::kServiceName, vt::kVersionMajor,
                vt::kVersionMinor, vt::kBuildNumber, vt::kReleaseText);
    return 0;
}
