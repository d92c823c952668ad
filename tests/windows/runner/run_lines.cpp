// Runs command lines one after the other and presses the buttons of their message boxes: run_lines FILE.
//
// A line of the file, in the ANSI code page, is "ANSWERS COMMAND LINE". ANSWERS has a letter for each box that asks: o
// OK, c Cancel, y Yes, n No; "-" where no box does. Behind the last answer Cancel is pressed, and OK where there is
// nothing else. Run n (the first is 0) leaves what it prints in n.out, and its level and the letters that weren't used
// in n.level.
#include <windows.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

HANDLE NewFile(const std::string& name) {
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  return CreateFileA(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
}

HANDLE Start(std::string line, HANDLE output) {
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output;
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION started{};
  if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started) == 0) {
    return nullptr;
  }
  CloseHandle(started.hThread);
  return started.hProcess;
}

int ButtonOf(char answer) {
  switch (answer) {
    case 'o':
      return IDOK;
    case 'y':
      return IDYES;
    case 'n':
      return IDNO;
    default:
      return IDCANCEL;
  }
}

// Presses a button of the box, which has to have it, and waits for the box to go.
void Answer(HWND box, std::string& answers) {
  int button = IDOK;
  if (GetDlgItem(box, IDCANCEL) != nullptr) {
    button = ButtonOf(answers.empty() ? 'c' : answers[0]);
    answers.erase(0, 1);
  }
  SendMessageA(GetDlgItem(box, button), BM_CLICK, 0, 0);
  while (IsWindow(box) != 0) {
    Sleep(1);
  }
}

DWORD Run(const std::string& line, std::string& answers, HANDLE output) {
  constexpr DWORD kBetweenLooks = 5;
  HANDLE process = Start(line, output);
  while (WaitForSingleObject(process, kBetweenLooks) == WAIT_TIMEOUT) {
    HWND box = FindWindowA("#32770", nullptr);
    if (box != nullptr && IsWindowVisible(box) != 0) {
      Answer(box, answers);
    }
  }
  DWORD level = 0xFFFFFFFF;
  GetExitCodeProcess(process, &level);
  CloseHandle(process);
  return level;
}

}  // namespace

int main(int argc, char** argv) {
  std::ifstream lines(argc > 1 ? argv[1] : "", std::ios::binary);
  std::string line;
  for (int n = 0; std::getline(lines, line); ++n) {
    const std::string name = std::to_string(n);
    std::string answers = line.substr(0, line.find(' '));
    if (answers == "-") {
      answers.clear();
    }
    HANDLE output = NewFile(name + ".out");
    const DWORD level = Run(line.substr(line.find(' ') + 1), answers, output);
    CloseHandle(output);
    std::ofstream(name + ".level") << level << answers;
  }
}
