/* Groups of the check; each prints its lines. */
#pragma once

void v_CHECK_DIRECTORIES();
void v_CHECK_PROGRAMS();
void v_CHECK_ACCESS();
void v_CHECK_DATABASE();
