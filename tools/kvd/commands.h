// The commands of kvd. Each takes its arguments after the command word and returns the exit code:
// 0 done, 1 the table or the request could not be served (a message went to standard error),
// 2 the command line was wrong. kvd seek adds 3 and 4 for a key that is not in the tag.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace kvd::tool {

using Args = std::vector<std::string>;

int CmdInfo(const Args& args);
int CmdDump(const Args& args);
int CmdSeek(const Args& args);
int CmdDemo(const Args& args);
int CmdCheck(const Args& args);
// kvd demo DIR/: a small plant with DIR as its admin directory: projects, versions, comments,
// the dictionary, and in each version the tables WriteDemoVersion writes.
int DemoPlant(const std::string& dir);
// The tables of one version directory, written through the library's families (DirAs, Dirfig).
int WriteDemoVersion(const std::string& dir, bool announce);

// The catalogue: kvd projects, kvd versions PROJECT, kvd project ..., kvd version ...
int CmdProjects(const Args& args);
int CmdVersions(const Args& args);
int CmdProject(const Args& args);
int CmdVersion(const Args& args);
// --admin DIR: the library reads its configuration again, with DIR as the admin directory. 0, or
// the exit code after a message.
int UseAdminDirectory(const std::string& dir);

enum class Format;
// kvd dump DIR FAMILY: the records of a family's table in a directory, as the family reads them.
int DumpFamily(const std::string& dir, const std::string& family, Format fmt);

// Puts a command's usage line on standard error and gives the exit code for a wrong command line.
inline int UsageError(const char* usage) {
  std::fputs(usage, stderr);
  return 2;
}

}  // namespace kvd::tool
