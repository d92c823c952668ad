#include "cli/main_run.h"
#include "platform/start.h"

int main(int argc, char** argv) {
  port = &StartPlatform(argc, argv);
  Main();
}
