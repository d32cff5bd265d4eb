/* The subcommands of the server half. Each returns the exit code. */
#pragma once

#include <string>
#include <vector>

/* What the command line gave. */
struct SETUP_ARGS {
    std::string sName;      // --name: of this server; empty: the machine's
    std::string sConninfo;  // --conninfo; empty: vk.ini's, else the machine's own
    std::string sMode;      // --mode; of set_mode its second word
    std::string sClient;    // set_mode: the client
    std::string sSystem;    // --os: its operating system, for one that is new
    std::string sVariable;  // show: its name
};

int iSERVER(const SETUP_ARGS& args);
int iCHECK();
int iPERMIT(const SETUP_ARGS& args);
int iSET_MODE(const SETUP_ARGS& args);  // becomes the tool, which checks the client
int iSHOW(const SETUP_ARGS& args);

/* ---- pieces of the first setup, each reports its steps -------------------- */

/* Role, database, tables and rows. Result 1: the database is complete. */
int iSETUP_DATABASE(const SETUP_ARGS& args);
/* vk.ini, where there is none from the commented default that comes with the product, and
   its mode; directories and update scripts; ssh configurations and keys. */
void v_SETUP_CONFIGURATION();
void v_SETUP_DIRECTORIES();
void v_SETUP_ACCESS(const std::string& sServer);

/* ---- groups of the check; each prints its lines ---------------------------- */

void v_CHECK_DIRECTORIES();
void v_CHECK_PROGRAMS();
void v_CHECK_ACCESS();
void v_CHECK_DATABASE();

/* ---- what they share ------------------------------------------------------ */

std::string sMACHINE_NAME();
/* The name of the server: its row's, the machine's where there is none; empty: sError says why
   the database cannot be asked. */
std::string sSERVER_NAME(std::string& sError);

/* The access modes that get a key of their own. */
constexpr const char* acpKeyMode[] = {"VKSSH", "CTRL"};

/* The directories that the tool writes to. */
struct WORK_DIRECTORY {
    const char* cpKey;
    const char* cpBelow;  // a directory inside it, "" itself
};
constexpr WORK_DIRECTORY asctWorkDirectory[] = {
    {"gv_rw", ""},           {"gv_rw_work", ""}, {"gv_rw_work", "packages/"},
    {"gv_rw_work", "answ/"}, {"gv_rw_lgc", ""},  {"gv_rw_prot", ""},
};
std::string sDIRECTORY(const WORK_DIRECTORY& directory);

/* The update scripts, which every installation has below gv_ro:skel/. */
constexpr const char* acpUpdateScript[] = {"vk_execute_update", "vk_execute_update.cmd"};

/* The private keys that an ssh configuration names, in its order. An error of the
   configuration: sError holds ssh's words. */
std::vector<std::string> asIDENTITIES(const std::string& sConfig, std::string& sError);

/* 1: the file holds a public key, whose private half an agent has. */
int iAGENT_KEY(const std::string& sKey);

/* 1: the agent that the ssh configuration names signs with the key of that public key
   file. Result 0: sError says why not. */
int iAGENT_HOLDS(const std::string& sConfig, const std::string& sKey, std::string& sError);

/* The public half of a private key, "TYPE BASE64 COMMENT", from KEY.pub, else from the
   key itself. Result 0: sError says why. */
int iPUBLIC_KEY(const std::string& sKey, std::string& sPublic, std::string& sError);

/* The line that admits this server on a client, for a mode. Result 0: sError. */
int iPERMIT_LINE(const std::string& sMode, std::string& sLine, std::string& sError);
