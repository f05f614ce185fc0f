#include "console/http/files.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace console {
namespace {

constexpr std::uintmax_t kMaxFile_bytes = std::uintmax_t{16} << 20;

constexpr std::pair<const char*, const char*> kTypes[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".jpg", "image/jpeg"},
};

bool IsName(const std::string& name) {
  return !name.empty() && name.size() <= 255 && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), [](unsigned char character) {
           return std::isalnum(character) != 0 || character == '.' || character == '_' ||
                  character == '-';
         });
}

}  // namespace

HttpResponse FileResponse(const std::string& directory, const std::string& name) {
  const HttpResponse none = ErrorResponse(404, "there is no such file");
  if (!IsName(name)) {
    return none;
  }
  const std::filesystem::path path = std::filesystem::path(directory) / name;
  std::error_code error;
  // A link could lead out of the directory.
  if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(path, error)) ||
      std::filesystem::file_size(path, error) > kMaxFile_bytes) {
    return none;
  }
  const auto type = std::find_if(std::begin(kTypes), std::end(kTypes), [&path](const auto& known) {
    return path.extension() == known.first;
  });
  std::ifstream file(path, std::ios::binary);
  if (!file || type == std::end(kTypes)) {
    return none;
  }
  HttpResponse response;
  response.type = type->second;
  response.body.assign(std::istreambuf_iterator<char>(file), {});
  return response;
}

}  // namespace console
