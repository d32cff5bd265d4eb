/* The least that checks of many clients can cost: for each client one fork and
   exec of a program, one after the other.

     floor_many PREFIX FIRST LAST PROGRAM ARGUMENT...

   PROGRAM gets PREFIX with the number, FIRST to LAST, as its last argument. */
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

int iRUN(std::vector<char*>& arguments, std::string sName)
{
    const pid_t iPid = fork();
    if (iPid == 0) {
        arguments[arguments.size() - 2] = sName.data();
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    int iStatus = -1;
    return iPid > 0 && waitpid(iPid, &iStatus, 0) == iPid && iStatus == 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 5) return 2;
    std::vector<char*> arguments(argv + 4, argv + argc);
    arguments.resize(arguments.size() + 2, nullptr);
    int iFailed = 0;
    for (int i = std::atoi(argv[2]); i <= std::atoi(argv[3]); ++i)
        if (!iRUN(arguments, argv[1] + std::to_string(i))) ++iFailed;
    return iFailed == 0 ? 0 : 1;
}
