/* What has changed since an earlier time, for people; nothing when nothing has
   changed. */
#pragma once

#include "chosen.h"
#include "listing.h"

/* The fleet as it is, to be compared with later: one JSON object per client and line. */
std::string sREMEMBERED(const FLEET& fleet);

/* Reads such a text. Result 0: it is none. */
int iREAD_REMEMBERED(const std::string& sText, PRIORS& priors);

/* The chosen clients against priors. bWhole: a client that priors do not name is new, and one
   that only they name is removed; else a client without a prior has not changed.
   lSince: an update that ended by then is none that ended since.
   A line for each client, or JSON. */
std::string sFORM_CHANGES(const FLEET& fleet, const CHOICE& choice, const PRIORS& priors,
                          bool bWhole, long lSince, FORM eForm);
