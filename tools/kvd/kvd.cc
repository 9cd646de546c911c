// kvd — look into and work with the configuration tables of a plant from a shell.
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/kvd/commands.h"

namespace {

const char kUsage[] =
    "usage: kvd COMMAND [ARGS]\n"
    "\n"
    "  info TABLE                     fields, record count, deleted records, memo file\n"
    "  dump TABLE [--csv|--json]      every record, in record order\n"
    "  demo TABLE                     write a small demo table of measuring points\n"
    "\n"
    "TABLE is a .DBF file; the extension may be left out and case does not matter.\n";

struct Command {
  const char* name;
  int (*run)(const kvd::tool::Args&);
};

const Command kCommands[] = {
    {"info", kvd::tool::CmdInfo},
    {"dump", kvd::tool::CmdDump},
    {"demo", kvd::tool::CmdDemo},
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
