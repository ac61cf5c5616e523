// Where the configuration manager tells what it does: the event log.
#pragma once

#include <string>

void cfgMgrLog(const std::string& text);
void cfgMgrSysErr(const std::string& text);
