/* The backup server itself: commands run as children of /bin/sh, files are copied
   in the file system. */

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "../base/immortal.h"
#include "../config/variables.h"
#include "transport.h"
#include "wrapper.h"

namespace {

struct LOCAL : TRANSPORT {
    int iFORM(const HOST&, const std::string&, std::string_view svCommand, int, CHILD_SPEC& sctSpec,
              REFUSAL&) override
    {
        std::string sPrograms;
        iCONFIG_VARIABLE("gv_ro_bin", sPrograms);
        sctSpec.asArgument = {"/bin/sh", "-c", cpPOSIX_READER};
        sctSpec.bPipeIn = true;
        sctSpec.sFirstInput = sPOSIX_SCRIPT(svCommand, sPrograms);
        sctSpec.bOutlives = iLEFT_TO_FINISH(svCommand) != 0;
        return 1;
    }

    bool bESTABLISHED(const HOST&) override { return false; }

    int iPLACE(const HOST&, const char* cpPath, std::string& sPath, std::string& sReason) override
    {
        return iCONFIG_SERVER_PATH(cpPath, sPath, sReason);
    }

    COPY_END sctPUT(const HOST&, const std::string& sSource, const std::string& sTarget,
                    const char* cpMode) override
    {
        namespace fs = std::filesystem;
        std::error_code error;
        const fs::path  target(sTarget);
        const fs::path  part(sTarget + ".part");
        const auto      sctFAILED = [&](const std::string& sVerb) {
            COPY_END end;
            end.sReason = "cannot " + sVerb + " \"" + sTarget + "\": " + error.message();
            if (error == std::errc::no_space_on_device) end.finding.sCause = "disk-full";
            if (error == std::errc::read_only_file_system) end.finding.sCause = "disk-read-only";
            if (error == std::errc::permission_denied) end.finding.sCause = "copy-not-permitted";
            std::error_code ignored;
            fs::remove(part, ignored);
            return end;
        };
        fs::create_directories(target.parent_path(), error);
        if (error) return sctFAILED("make the folder of");
        fs::copy_file(sSource, part, fs::copy_options::overwrite_existing, error);
        if (!error && fs::file_size(part, error) != fs::file_size(sSource, error) && !error)
            error = std::make_error_code(std::errc::io_error);
        if (error) return sctFAILED("write");
        if (cpMode != nullptr) {
            fs::permissions(part, static_cast<fs::perms>(std::strtoul(cpMode, nullptr, 8)), error);
            if (error) return sctFAILED("set the mode of");
        }
        fs::rename(part, target, error);
        if (error) return sctFAILED("rename into");
        return {true, "", {}, {}};
    }

    void REMOVE_FOLDERS(const HOST&, const std::vector<std::string>& asFolder) override
    {
        for (const std::string& sFolder : asFolder)
            if (rmdir(sFolder.c_str()) != 0) return;
    }
};

}  // namespace

TRANSPORT& LOCAL_TRANSPORT()
{
    static IMMORTAL<LOCAL> transport;
    return transport.Get();
}
