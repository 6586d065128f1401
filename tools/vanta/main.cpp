// vanta: try every parser and service of vanta-base from a shell.
#include "command.h"

#include <vanta/versioninfo.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
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

// While a command runs over standard input, the number of the line it reads (from 1), named in
// its errors; 0 otherwise.
long gLineNumber = 0;

// Commands whose last TEXT may be "-": one text per line from standard input.
const std::set<std::string> kReadsLines = {"value", "lat",      "lng",       "latlng",
                                           "date",  "httpdate", "cleanpath", "status"};

void printHelp(FILE* to) {
    std::fprintf(to, "usage: vanta COMMAND [ARGS...]\n\n"
                     "  vanta, vanta demo   a short tour of every command\n");
    for (const auto& [name, command] : commands())
        std::fprintf(to, "  vanta %-28s %s\n", command.synopsis, command.summary);
    std::fprintf(to, "\nExit status: 0 success, 1 input rejected, 2 usage error.\n");
}

// Runs the command once per line of standard input, the line in place of the final "-". Every
// line gets its result or its error; the status is the worst of them.
int runOverLines(const Command& command, QStringList args) {
    int status = kOk;
    char* buffer = nullptr;
    size_t capacity = 0;
    ssize_t length = 0;
    // getline gives each line whole, whatever its length, and its true length, so a NUL byte
    // inside a line stays in that line.
    while ((length = getline(&buffer, &capacity, stdin)) >= 0) {
        if (length > 0 && buffer[length - 1] == '\n')
            --length;
        if (length > 0 && buffer[length - 1] == '\r')
            --length;
        ++gLineNumber;
        args.last() = QString::fromUtf8(buffer, qsizetype(length));
        status = std::max(status, command.run(args));
    }
    std::free(buffer);
    gLineNumber = 0;
    if (std::ferror(stdin))
        return error(QStringLiteral("cannot read standard input"));
    return status;
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
    if (gLineNumber > 0)
        std::fprintf(stderr, "vanta: line %ld: %s\n", gLineNumber, message.toUtf8().constData());
    else
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
    if (name == "--version") {
        if (argc != 2)
            return usage("--version");
        std::printf("vanta %s\n", VersionInfo::getAppVersionW().toUtf8().constData());
        return kOk;
    }
    auto found = commands().find(name);
    if (found == commands().end()) {
        std::fprintf(stderr, "vanta: unknown command '%s'\n", name.c_str());
        printHelp(stderr);
        return kUsage;
    }
    const Command& command = found->second;
    // "--help" alone after a command asks for its usage; anywhere else it is TEXT.
    if (argc == 3 && std::string(argv[2]) == "--help") {
        std::printf("usage: vanta %s\n  %s\n", command.synopsis, command.summary);
        if (kReadsLines.count(name))
            std::printf("  A TEXT of \"-\" reads one text per line from standard input.\n");
        return kOk;
    }
    QStringList args;
    for (int i = 2; i < argc; ++i)
        args << QString::fromUtf8(argv[i]);
    if (kReadsLines.count(name) && !args.isEmpty() && args.last() == QLatin1String("-"))
        return runOverLines(command, args);
    return command.run(args);
}
