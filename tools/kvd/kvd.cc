// kvd — look into and work with the configuration tables of a plant from a shell.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/kvd/commands.h"

namespace {

const char kUsage[] =
    "usage: kvd COMMAND [ARGS]\n"
    "\n"
    "  info TABLE                     fields, record count, deleted records, memo file, tags\n"
    "  dump TABLE [--csv|--json] [--tag NAME]\n"
    "                                 every record, in record order or in the order of a tag\n"
    "  seek TABLE TAG KEY [--csv|--json]\n"
    "                                 the first record whose key in TAG begins with KEY;\n"
    "                                 exit 0 found, 3 not found (the record with the next key\n"
    "                                 is shown), 4 not found and no key follows\n"
    "  dump DIR FAMILY [--csv|--json] the records of a family's table in DIR, as the family reads\n"
    "                                 them (FAMILY: Mp, Po, So, Ref, Sec, Dirsec, Usr, Up, Job,\n"
    "                                 DoAttr, DirAs, Dirfig, ...)\n"
    "  seek DIR FAMILY KEY [KEY2]     the record of a family's table with that key (a point id, a\n"
    "                                 user name; Up: profile and function); exit 0 found, 3 not\n"
    "                                 found\n"
    "  check DIR                      every family's table in DIR against its definition; changes\n"
    "                                 nothing; exit 3 when a table differs or cannot be opened\n"
    "  demo TABLE                     write a small indexed demo table of measuring points\n"
    "  demo DIR/                      write a small plant with DIR as its admin directory\n"
    "\n"
    "The catalogue of a plant (the admin directory: --admin DIR, else the configuration the\n"
    "library reads, TELMOR.INI beside kvd or the file KVD_TELMOR_INI names):\n"
    "  projects                       the projects, with description and directory\n"
    "  versions PROJECT               the versions of a project\n"
    "  project new NAME DIR [--descr TEXT] [--comment TEXT]\n"
    "  project show NAME\n"
    "  project copy NAME NEWNAME NEWDIR [--password TEXT]\n"
    "  project rename NAME NEWNAME    the catalogue's name; the directory stays\n"
    "  project move NAME NEWDIR       the tree to NEWDIR, which must not exist yet\n"
    "  project delete NAME            versions and files go; the directory stays\n"
    "  version new PROJECT NAME [--descr TEXT] [--editor NAME] [--comment TEXT]\n"
    "  version show|copy|rename|lock|delete PROJECT NAME [NEWNAME]\n"
    "                                 DIR and NEWDIR: absolute, or relative to the admin directory;\n"
    "                                 exit 1 with the library's status when a call fails\n"
    "\n"
    "TABLE is a .DBF file; the extension may be left out and case does not matter.\n";

struct Command {
  const char* name;
  int (*run)(const kvd::tool::Args&);
};

const Command kCommands[] = {
    {"info", kvd::tool::CmdInfo},
    {"dump", kvd::tool::CmdDump},
    {"seek", kvd::tool::CmdSeek},
    {"demo", kvd::tool::CmdDemo},
    {"check", kvd::tool::CmdCheck},
    {"projects", kvd::tool::CmdProjects},
    {"versions", kvd::tool::CmdVersions},
    {"project", kvd::tool::CmdProject},
    {"version", kvd::tool::CmdVersion},
};

// Takes --admin DIR (or --admin=DIR) out of the arguments, wherever it stands. False after a
// message when it lacks its value.
bool TakeAdmin(std::vector<std::string>* args, std::string* admin) {
  for (std::size_t i = 0; i < args->size(); ++i) {
    std::string& a = (*args)[i];
    if (a.rfind("--admin=", 0) == 0) {
      *admin = a.substr(8);
      args->erase(args->begin() + static_cast<long>(i));
      return true;
    }
    if (a == "--admin") {
      if (i + 1 >= args->size()) {
        std::fputs("kvd: --admin wants a directory\n", stderr);
        return false;
      }
      *admin = (*args)[i + 1];
      args->erase(args->begin() + static_cast<long>(i), args->begin() + static_cast<long>(i) + 2);
      return true;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  std::string admin;
  if (!TakeAdmin(&args, &admin)) return 2;
  if (args.empty() || args[0] == "-h" || args[0] == "--help" || args[0] == "help") {
    std::fputs(kUsage, args.empty() ? stderr : stdout);
    return args.empty() ? 2 : 0;
  }
  if (!admin.empty())
    if (int rc = kvd::tool::UseAdminDirectory(admin); rc != 0) return rc;
  for (const Command& c : kCommands) {
    if (args[0] != c.name) continue;
    return c.run(kvd::tool::Args(args.begin() + 1, args.end()));
  }
  std::fprintf(stderr, "kvd: unknown command '%s'\n\n%s", args[0].c_str(), kUsage);
  return 2;
}
