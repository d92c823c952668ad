#include "windows/wine.h"

#include <algorithm>
#include <cstdlib>

RunResult RunUnderWine(const std::string& folder, const std::vector<std::string>& command, int seconds) {
  setenv("WINEDEBUG", "-all", 1);
  setenv("WINEPREFIX", KORVENTIX_WINE_PREFIX, 1);
  setenv("WINEDLLOVERRIDES", "mscoree,mshtml=", 1);  // a new prefix would ask for packages that these come from
  setenv("LC_ALL", "C.UTF-8", 1);                    // names of files beyond ASCII
  unsetenv("DISPLAY");                               // boxes are nobody's to answer
  std::vector<std::string> all{
      "sh", "-c", R"(cd "$0" && exec timeout -k 10 "$@")", folder, std::to_string(seconds), "/usr/lib/wine/wine64"};
  all.insert(all.end(), command.begin(), command.end());
  return RunCommand(all);
}

std::string WindowsPath(std::string file) {
  std::replace(file.begin(), file.end(), '/', '\\');
  return "Z:" + file;
}
