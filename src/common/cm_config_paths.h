/* For the configuration's own files. */
#pragma once

#include <string>

/* 1 when vk.ini has the section. */
int iCONFIG_SECTION(const std::string& sSection);
