#pragma once
// The help of a subcommand: its usage line first ("usage: agentenv check
// ..."), then its description, options and footer.

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace Zet::Tool {

class SubcommandHelp : public CLI::Formatter {
 public:
  SubcommandHelp(std::string usage, std::string details) : usage_(std::move(usage)), details_(std::move(details)) {}
  std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
    return make_usage(app, name) + "\n" + details_ + make_positionals(app) + make_groups(app, mode) + "\n" +
           make_footer(app);
  }
  std::string make_usage(const CLI::App*, std::string) const override { return usage_ + "\n"; }

 private:
  std::string usage_;
  std::string details_;
};

// Gives the subcommand its help (and its -h, --help flag).
inline void helpIs(CLI::App& subcommand, std::string usage, std::string details) {
  subcommand.set_help_flag("-h,--help", "show this help");
  subcommand.formatter(std::make_shared<SubcommandHelp>(std::move(usage), std::move(details)));
}

}  // namespace Zet::Tool
