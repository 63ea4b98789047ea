#include <iostream>
#include <string>
#include <vector>

#include "platform/console_io.h"
#include "platform/registry.h"
#include "vtreg/vtreg_cli.h"

int main(int argc, char** argv) {
    vt::setBinaryStdio();  // an export is written byte for byte, its CRLF included
    const std::vector<std::string> args(argv + 1, argv + argc);
    const int rc = vtreg::runVtreg(args, std::cout, std::cerr);
    vt::regCloseHive();  // leaves no journal files behind
    std::cout.flush();
    return rc;
}
