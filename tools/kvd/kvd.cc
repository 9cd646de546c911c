// kvd — look into and work with the configuration tables of a plant from a shell.
#include <cstdio>
#include <cstring>
#include <string>

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
    "                                 them (FAMILY: DirAs, Dirfig, ...)\n"
    "  check DIR                      every family's table in DIR against its definition; changes\n"
    "                                 nothing; exit 3 when a table differs or cannot be opened\n"
    "  demo TABLE                     write a small indexed demo table of measuring points\n"
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
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "help")) {
    std::fputs(kUsage, argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  for (const Command& c : kCommands) {
    if (std::strcmp(argv[1], c.name) != 0) continue;
    return c.run(kvd::tool::Args(argv + 2, argv + argc));
  }
  std::fprintf(stderr, "kvd: unknown command '%s'\n\n%s", argv[1], kUsage);
  return 2;
}
