#include <CLI/CLI.hpp>

#include <iostream>

int main(int argc, char** argv) {
  CLI::App app{"clockcomm: the time-clock communications server"};
  app.require_subcommand(1);
  CLI11_PARSE(app, argc, argv);
  return 0;
}
