#include "service/agent_main.h"

int main(int argc, char** argv) {
    return vt::agentMain(argc, argv);
}
