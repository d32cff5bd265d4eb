/* Statuses with which an update script asks for a restart of its client: the update
   has succeeded, and becomes complete with the restart. */
#pragma once

#include <algorithm>
#include <iterator>

constexpr long alRestartStatus[] = {1641, 1644, 1645, 1652, 1653, 1654, 3010};

constexpr bool bRESTART_STATUS(long lStatus)
{
    return std::find(std::begin(alRestartStatus), std::end(alRestartStatus), lStatus) !=
           std::end(alRestartStatus);
}
