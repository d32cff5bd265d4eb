#include "forked_run.h"

#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "../base/descriptor.h"
#include "../base/immortal.h"
#include "waiting.h"

namespace {

/* Holds for this process and all that are forked off it. */
struct BEGINNING {
    void (*pRun)(int, char**) = nullptr;
    char*        cpArea = nullptr;  // where the arguments stand
    size_t       uArea = 0;
    bool         bMap = false;  // the system has told its map of this process:
    prctl_mm_map map{};
};

BEGINNING& BEGUN()
{
    static LASTING<BEGINNING> beginning;
    return beginning.Get();
}

/* Where the system has the parts of this process, as it tells them (proc(5), stat). */
bool bREAD_MAP(prctl_mm_map& map)
{
    std::string sText;
    if (!iREAD_FILE("/proc/self/stat", sText)) return false;
    constexpr size_t      uFIRST = 4;  // number behind the name and the state
    std::array<__u64, 52> auField{};
    const char*           cp = sText.c_str() + std::min(sText.rfind(')') + 3, sText.size());
    for (size_t u = uFIRST; u < auField.size(); ++u) {
        char* cpEnd = nullptr;
        auField[u] = std::strtoull(cp, &cpEnd, 10);
        if (cpEnd == cp) return false;
        cp = cpEnd;
    }
    map.start_code = auField[26];
    map.end_code = auField[27];
    map.start_stack = auField[28];
    map.start_data = auField[45];
    map.end_data = auField[46];
    map.start_brk = auField[47];
    map.env_start = auField[50];
    map.env_end = auField[51];
    map.exe_fd = static_cast<__u32>(-1);
    return true;
}

/* Shows process lists these words as the arguments: the system is told where they lie.
   Where it does not take that, as much of them as fits stands where the first arguments
   stood. The environment, by which others find the processes of a run, stays. */
void v_SHOW_ARGUMENTS(const std::vector<std::string>& asWord)
{
    static LASTING<std::string> shown;
    std::string&                sText = shown.Get();
    sText.clear();
    for (const std::string& s : asWord) sText.append(s).push_back('\0');
    prctl_mm_map map = BEGUN().map;
    map.brk = reinterpret_cast<__u64>(sbrk(0));
    map.arg_start = reinterpret_cast<__u64>(sText.data());
    map.arg_end = map.arg_start + sText.size();
    if (BEGUN().bMap && prctl(PR_SET_MM, PR_SET_MM_MAP, &map, sizeof map, 0) == 0) return;
    std::memset(BEGUN().cpArea, 0, BEGUN().uArea);
    sText.copy(BEGUN().cpArea, BEGUN().uArea - 1);
}

}  // namespace

void v_RUNS_CAN_BE_FORKED(int argc, char** argv, void (*pRun)(int, char**))
{
    if (argc < 1) return;
    BEGINNING& begun = BEGUN();
    begun.pRun = pRun;
    begun.cpArea = argv[0];
    for (int i = 0; i < argc && argv[i] == argv[0] + begun.uArea; ++i)
        begun.uArea += std::strlen(argv[i]) + 1;
}

bool bRUN_CAN_BE_FORKED(const std::string& sFile)
{
    struct stat sctOwn {};
    struct stat sctFile {};
    if (!BEGUN().bMap) BEGUN().bMap = bREAD_MAP(BEGUN().map);
    return BEGUN().pRun != nullptr && stat("/proc/self/exe", &sctOwn) == 0 &&
           stat(sFile.c_str(), &sctFile) == 0 && sctOwn.st_dev == sctFile.st_dev &&
           sctOwn.st_ino == sctFile.st_ino;
}

void v_FORKED_RUN(const CHILD_SPEC& sctSpec)
{
    static LASTING<std::vector<std::string>> words;
    static LASTING<std::vector<char*>>       pointers;
    words.Get() = sctSpec.asArgument;
    pointers.Get().clear();
    for (std::string& s : words.Get()) pointers.Get().push_back(s.data());
    pointers.Get().push_back(nullptr);
    for (const auto& [sName, sValue] : sctSpec.asEnvironment)
        setenv(sName.c_str(), sValue.c_str(), 1);
    v_SHOW_ARGUMENTS(words.Get());
    program_invocation_name = words.Get()[0].data();
    program_invocation_short_name =
        program_invocation_name + words.Get()[0].rfind('/') + 1;  // none: npos + 1 is 0
    prctl(PR_SET_NAME, program_invocation_short_name);
    v_PROCESS_ANEW(sctSpec.iKept);
    if (sctSpec.pFirst) sctSpec.pFirst();
    BEGUN().pRun(static_cast<int>(words.Get().size()), pointers.Get().data());
    _exit(127);
}
