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
// The tables of one version directory, written through the library's families (DirAs, Dirfig, and
// with `data_objects` the data objects, sections, users and profiles; `boiler` chooses the plant).
int WriteDemoVersion(const std::string& dir, bool announce, bool data_objects = false, bool boiler = false);
// The data objects of a version: a few hundred measuring points, process, system and reference
// objects, sections, users and profiles. 0, or 1 after a message.
int WriteDemoDataObjects(const std::string& dir, bool boiler);
// The jobs and data-object attributes of a project directory. 0, or 1 after a message.
int WriteDemoJobs(const std::string& project_dir);

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
// kvd seek DIR FAMILY KEY [KEY2]: one record of a family's table by its key.
int SeekFamily(const std::string& dir, const std::string& family, const std::vector<std::string>& keys, Format fmt);

// Puts a command's usage line on standard error and gives the exit code for a wrong command line.
inline int UsageError(const char* usage) {
  std::fputs(usage, stderr);
  return 2;
}

}  // namespace kvd::tool
