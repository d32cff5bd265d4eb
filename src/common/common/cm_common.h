/* Results of a run. The exit code of the process is the value itself. */
#pragma once

enum EXIT_STATE {
    VK_SUCCESS = 0,
    VK_WARNING = 1,
    VK_ERROR = 2,
    VK_FATAL = 3,
    VK_ROLLBACK = 4,
};
