// Windows keeps no load average: Task Scheduler's idle condition decides there (see
// contrib/windows/corebench-task.xml).

#include "node_load.h"

NodeLoad systemNodeLoad(const std::string& /*procRoot*/, std::string* problem) {
    *problem =
        "Windows keeps no load average; run corebench-fleet from a task that starts only when "
        "the computer is idle (contrib/windows/corebench-task.xml)";
    return NodeLoad{};
}
