// The built libKvdDat.so against the list of every function the table layer exports when all its
// families stand: it exports nothing outside the list; a family it exports at all it exports whole;
// and what is still missing is counted on the way.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>

namespace {

std::set<std::string> ReadList(const std::string& path) {
  std::set<std::string> names;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) names.insert(line);
  return names;
}

// The dynamic symbols the library defines, as the linker sees them.
std::set<std::string> Defined(const std::string& lib) {
  std::set<std::string> names;
  FILE* p = ::popen(("nm -D --defined-only " + lib).c_str(), "r");
  if (p == nullptr) return names;
  char line[512];
  while (std::fgets(line, sizeof line, p) != nullptr) {
    std::string s(line);
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
    const std::size_t sp = s.rfind(' ');
    if (sp == std::string::npos || sp < 2) continue;
    const char kind = s[sp - 1];
    if (kind == 'T' || kind == 'D' || kind == 'B' || kind == 'W' || kind == 'R') names.insert(s.substr(sp + 1));
  }
  ::pclose(p);
  return names;
}

// The family of an operation's name: the name less one of the operation suffixes.
std::string FamilyOf(const std::string& name) {
  static const char* const kOps[] = {"CheckDBStructure", "OCAccess", "FCAccess", "WCAccess", "SCId", "GaWC",
                                     "GaD", "OC2", "FC2", "OC", "FC", "WC", "DC", "CC", "R", "I", "U", "D"};
  for (const char* op : kOps) {
    const std::string o = op;
    if (name.size() > o.size() && name.compare(name.size() - o.size(), o.size(), o) == 0)
      return name.substr(0, name.size() - o.size());
  }
  return "";
}

TEST(Exports, TheLibraryExportsItsListAndNothingElse) {
  const std::set<std::string> list = ReadList(KVD_EXPORT_LIST);
  if (list.empty()) GTEST_SKIP() << "the export list " << KVD_EXPORT_LIST << " is not here";
  const std::set<std::string> defined = Defined(KVD_LIBRARY);
  ASSERT_FALSE(defined.empty()) << "nm found no symbols in " << KVD_LIBRARY;
  for (const std::string& s : defined) {
    if (s.rfind("_init", 0) == 0 || s.rfind("_fini", 0) == 0) continue;
    EXPECT_TRUE(list.count(s)) << s << " is exported but is no function of the table layer";
  }
  // Each name loads as a function.
  void* lib = ::dlopen(KVD_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << ::dlerror();
  std::set<std::string> families;
  std::size_t present = 0;
  for (const std::string& n : list) {
    if (::dlsym(lib, n.c_str()) == nullptr) continue;
    ++present;
    const std::string f = FamilyOf(n);
    if (!f.empty()) families.insert(f);
  }
  for (const std::string& n : list) {
    const std::string f = FamilyOf(n);
    if (!f.empty() && families.count(f)) {
      EXPECT_NE(::dlsym(lib, n.c_str()), nullptr) << n << " of family " << f;
    }
  }
  for (const char* frame : {"Select", "SelectDir", "Unselect", "GetAdminPath", "GetProjektPath", "GetVersionPath",
                            "CompletePath", "AppendBackslash", "DeleteBackslash", "CompareWild", "DBPack",
                            "DBRcrdCnt", "GetKeyCursor", "DisplayError", "ProjektGetPath", "VersionGetPath"})
    EXPECT_NE(::dlsym(lib, frame), nullptr) << frame;
  std::printf("libKvdDat.so exports %zu of the %zu functions; %zu still missing\n", present, list.size(),
              list.size() - present);
  ::dlclose(lib);
}

}  // namespace
