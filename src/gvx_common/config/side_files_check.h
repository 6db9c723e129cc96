#pragma once

#include <string>
#include <vector>

namespace gvx {

// Tells a finding for each mistake in the files beside zvs_gvx.conf that their readers pass over without a word:
// network.conf, log.xml, the texts of the alarms, what devices of a model can do, and what others keep about this
// gateway. Takes nothing from them. An element that nobody knows counts as a mistake where one that is known is near
// and missing; any other may be somebody else's. Any thread.
void CheckSideFiles(const std::string& directory);

// The same for a plug-in's file of AlarmInfo elements. codes are those that it raises; empty for one whose devices have
// codes of their own.
void CheckAlarmMap(const std::string& file, const std::vector<std::string>& codes);

}  // namespace gvx
