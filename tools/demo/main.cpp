// tarvo-demo: the camera server in one command.
//
//   tarvo-demo [--seconds=N] [--config=FILE] [--run-dir=DIR]
#include "config.h"
#include "supervisor.h"

int main(int argc, char **argv)
{
    demo::Config config;
    if (!demo::loadConfig(argc, argv, config))
        return 2;
    return demo::supervise(config);
}
