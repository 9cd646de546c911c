// The comment file of a project or version directory: plain text, no structure, "komment.txt".
#include <cstring>
#include <memory>
#include <string>

#include "catalogue/catalogue.h"
#include "platform/file.h"

namespace kvd::catalogue {
namespace {

std::string KommentFile(const char* dir) {
  std::string path = dir != nullptr ? dir : "";
  if (!path.empty() && path.back() != '\\' && path.back() != '/') path.push_back('\\');
  return path + "komment.txt";
}

}  // namespace

int WriteKomment(const char* lpPath, const char* lpKomment) {
  std::unique_ptr<platform::File> file;
  if (!platform::File::Open(KommentFile(lpPath), platform::OpenMode::kCreate, &file).ok()) return KVD_S_FILE_OPEN;
  const char* text = lpKomment != nullptr ? lpKomment : "";
  if (!file->WriteAt(0, text, std::strlen(text)).ok()) return KVD_S_FILE_OPEN;
  return KVD_S_OK;
}

int ReadKomment(const char* lpPath, char* lpKomment) {
  lpKomment[0] = '\0';
  std::unique_ptr<platform::File> file;
  if (!platform::File::Open(KommentFile(lpPath), platform::OpenMode::kRead, &file).ok()) return KVD_S_OK;
  std::size_t got = 0;
  if (!file->ReadAt(0, lpKomment, KVD_KOMMENT_MAX, &got).ok()) got = 0;
  lpKomment[got] = '\0';
  return KVD_S_OK;
}

}  // namespace kvd::catalogue
