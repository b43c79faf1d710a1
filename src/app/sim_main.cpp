#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
  CLI::App app{"clockcomm-sim: simulated time clocks and modems"};
  app.require_subcommand(1);
  CLI11_PARSE(app, argc, argv);
  return 0;
}
