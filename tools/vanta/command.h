// The vanta tool's command registry: each command file registers its commands and tour steps.
#pragma once

#include <QString>
#include <QStringList>

namespace vantatool {

// Exit statuses shared by every command.
enum Exit { kOk = 0, kRejected = 1, kUsage = 2 };

// A command: `run` gets the arguments after the command name and returns an Exit value.
struct Command {
    const char* name;
    const char* synopsis;  // e.g. "value TEXT"
    const char* summary;   // one line for --help
    int (*run)(const QStringList& args);
};

// A step of `vanta demo`; steps run in ascending `order`.
struct TourStep {
    int order;
    const char* title;
    void (*run)();
};

void registerCommand(const Command& command);
void registerTourStep(const TourStep& step);

// Registration from a command file: static Registrar r{Command{...}};
struct Registrar {
    explicit Registrar(const Command& command) { registerCommand(command); }
    explicit Registrar(const TourStep& step) { registerTourStep(step); }
};

// Output helpers: results one per line on stdout as UTF-8; errors on stderr prefixed "vanta: ".
void out(const QString& line);
int error(const QString& message, int status = kRejected);
int usage(const char* synopsis);

// Degrees and other doubles print with %.12g.
QString number(double value);

// The process's argc/argv, for commands that need a QApplication.
int& processArgc();
char** processArgv();

}  // namespace vantatool
