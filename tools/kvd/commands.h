// The commands of kvd. Each takes its arguments after the command word and returns the exit code:
// 0 done, 1 the table or the request could not be served (a message went to standard error),
// 2 the command line was wrong.
#pragma once

#include <string>
#include <vector>

namespace kvd::tool {

using Args = std::vector<std::string>;

int CmdInfo(const Args& args);
int CmdDump(const Args& args);
int CmdDemo(const Args& args);

}  // namespace kvd::tool
