// vanta: try every parser and service of vanta-base from a shell.
#include "command.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace vantatool {
namespace {

std::map<std::string, Command>& commands() {
    static std::map<std::string, Command> table;
    return table;
}

std::vector<TourStep>& tourSteps() {
    static std::vector<TourStep> steps;
    return steps;
}

int gArgc = 0;
char** gArgv = nullptr;

void printHelp(FILE* to) {
    std::fprintf(to, "usage: vanta COMMAND [ARGS...]\n\n"
                     "  vanta, vanta demo   a short tour of every command\n");
    for (const auto& [name, command] : commands())
        std::fprintf(to, "  vanta %-28s %s\n", command.synopsis, command.summary);
    std::fprintf(to, "\nExit status: 0 success, 1 input rejected, 2 usage error.\n");
}

int runTour() {
    std::vector<TourStep> steps = tourSteps();
    std::stable_sort(steps.begin(), steps.end(),
                     [](const TourStep& a, const TourStep& b) { return a.order < b.order; });
    std::printf("vanta-base tour\n");
    for (const TourStep& step : steps) {
        std::printf("\n== %s ==\n", step.title);
        step.run();
    }
    return kOk;
}

}  // namespace

void registerCommand(const Command& command) { commands()[command.name] = command; }
void registerTourStep(const TourStep& step) { tourSteps().push_back(step); }

void out(const QString& line) {
    std::fputs(line.toUtf8().constData(), stdout);
    std::fputc('\n', stdout);
}

int error(const QString& message, int status) {
    std::fprintf(stderr, "vanta: %s\n", message.toUtf8().constData());
    return status;
}

int usage(const char* synopsis) {
    std::fprintf(stderr, "vanta: usage: vanta %s\n", synopsis);
    return kUsage;
}

QString number(double value) { return QString::asprintf("%.12g", value); }

int& processArgc() { return gArgc; }
char** processArgv() { return gArgv; }

}  // namespace vantatool

int main(int argc, char** argv) {
    using namespace vantatool;
    gArgc = argc;
    gArgv = argv;
    if (argc < 2)
        return runTour();
    const std::string name = argv[1];
    if (name == "demo")
        return argc == 2 ? runTour() : usage("demo");
    if (name == "--help" || name == "-h" || name == "help") {
        printHelp(stdout);
        return kOk;
    }
    auto found = commands().find(name);
    if (found == commands().end()) {
        std::fprintf(stderr, "vanta: unknown command '%s'\n", name.c_str());
        printHelp(stderr);
        return kUsage;
    }
    QStringList args;
    for (int i = 2; i < argc; ++i)
        args << QString::fromUtf8(argv[i]);
    return found->second.run(args);
}
