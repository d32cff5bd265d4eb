/* The globals of the tool. */
#include "velka.h"

char    tmp_sc[34500];
char    gszRo[512];
char    gszRw[512];
str_log strLog;
