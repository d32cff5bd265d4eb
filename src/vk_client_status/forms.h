/* The forms in which the chosen clients are written. Each takes the fleet and the
   clients, in the order of their names, and returns the whole text. Values of clients
   are text in each: quoted, escaped or made harmless where they stand. */
#pragma once

#include <string>
#include <vector>

#include "database_rows.h"
#include "fleet.h"
#include "table.h"

enum FORM { FORM_TABLE, FORM_NAMES, FORM_JSON, FORM_CSV, FORM_NAGIOS, FORM_PROMETHEUS, FORM_PAGE };

using CHOSEN = std::vector<const CLIENT*>;

COLOR       eCOLOR(CLIENT_STATE eState);
std::string sFORM_TABLE(const FLEET& fleet, const CHOSEN& chosen, const TABLE_LOOK& look);

/* One client in full, with its last runs (the newest first). */
std::string sFORM_CLIENT(const FLEET& fleet, const CLIENT& client,
                         const std::vector<DETAIL>& details, const std::vector<OUTCOME>& runs,
                         const TABLE_LOOK& look);

/* Names, each closed by a line feed or, with bZero, by a zero byte. A name with a control
   character is told on standard error and left out where line feeds close. */
std::string sFORM_NAMES(const CHOSEN& chosen, bool bZero);

/* One JSON object per client and line. */
std::string sFORM_JSON(const FLEET& fleet, const CHOSEN& chosen);

/* Comma-separated values with a line of heads. A text that a spreadsheet would take for
   a formula has an apostrophe put in front; control characters are blanks. */
std::string sFORM_CSV(const FLEET& fleet, const CHOSEN& chosen);

/* From how many clients on a plugin warns: a number, or so many per cent; 0: never. */
struct LIMIT {
    double dNumber = 0;
    bool   bPercent = false;
};
struct NAGIOS_LIMITS {
    LIMIT warning{1, false};
    LIMIT critical{10, true};
    LIMIT staleWarning{1, false};  // those never checked included
    LIMIT staleCritical{};
    LIMIT updateWarning{1, false};
    LIMIT updateCritical{};
};
/* One line for a monitoring system, and its exit code 0 to 3. */
std::string sFORM_NAGIOS(const FLEET& fleet, const CHOSEN& chosen, const NAGIOS_LIMITS& limits,
                         int& iExit);

/* Metrics in the text format of Prometheus. */
std::string sFORM_PROMETHEUS(const FLEET& fleet, const CHOSEN& chosen);

/* A page that needs nothing else. iEvery: minutes until the next is expected. */
std::string sFORM_PAGE(const FLEET& fleet, const CHOSEN& chosen, int iEvery);
