// vanta::Process on Linux: posix_spawn, waitpid and signals.
#include <vanta/library.h>
#include <vanta/memory.h>

#include <vanta/linux/platform_p.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <new>
#include <spawn.h>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace vanta {

// The child behind a Process. Only the owning thread touches it.
struct ProcessData {
    pid_t pid = 0;
    bool ended = true;  // reaped, or never started
    int status = 127;   // valid once ended; 127 for a program that could not be started
};

namespace {

// Records how a reaped child ended: its exit code, or the number of the signal that ended it.
void recordEnd(ProcessData* d, int waitStatus) {
    d->ended = true;
    if (WIFEXITED(waitStatus))
        d->status = WEXITSTATUS(waitStatus);
    else if (WIFSIGNALED(waitStatus))
        d->status = WTERMSIG(waitStatus);
}

// Reaps the child if it has ended; blocks until it does when wait is true.
void reap(ProcessData* d, bool wait) {
    if (!d || d->ended)
        return;
    int waitStatus = 0;
    pid_t result;
    do {
        result = ::waitpid(d->pid, &waitStatus, wait ? 0 : WNOHANG);
    } while (result < 0 && errno == EINTR);
    if (result == d->pid)
        recordEnd(d, waitStatus);
    else if (result < 0)  // reaped elsewhere (SIGCHLD ignored): nothing more to learn
        d->ended = true;
}

}  // namespace

Process::Process(const QString& program, const QStringList& arguments) {
    void* block = doNew(sizeof(ProcessData));
    d = block ? new (block) ProcessData : nullptr;
    if (!d)
        return;

    std::vector<QByteArray> texts;
    texts.reserve(size_t(arguments.size()) + 1);
    texts.push_back(program.toUtf8());
    for (const QString& argument : arguments)
        texts.push_back(argument.toUtf8());
    std::vector<char*> argv;
    for (QByteArray& text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);

    // The child starts with no signals blocked and default handling of the ones a caller's
    // threads commonly change, so that kill() reaches it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int sig : {SIGTERM, SIGINT, SIGPIPE, SIGCHLD})
        sigaddset(&defaults, sig);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    const int error = posix_spawnp(&d->pid, argv[0], nullptr, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        const QString message =
            linuxio::errnoMessage(QStringLiteral("Failed to start \"%1\"").arg(program), error);
        std::fprintf(stderr, "%s\n", message.toUtf8().constData());
        return;
    }
    d->ended = false;
}

Process::~Process() {
    if (!d)
        return;
    if (isRunning()) {
        ::kill(d->pid, SIGTERM);
        // A child that ignores the request for three seconds is killed outright, so the
        // destructor never hangs and never leaves a zombie behind.
        for (int i = 0; i < 300 && isRunning(); ++i) {
            const timespec tick{0, 10 * 1000 * 1000};
            nanosleep(&tick, nullptr);
        }
        if (isRunning())
            ::kill(d->pid, SIGKILL);
        reap(d, true);
    }
    d->~ProcessData();
    doDelete(d);
}

bool Process::isRunning() {
    reap(d, false);
    return d && !d->ended;
}

void Process::block() { reap(d, true); }

void Process::kill() {
    reap(d, false);
    if (d && !d->ended)
        ::kill(d->pid, SIGTERM);
}

int Process::status() {
    reap(d, false);
    return d ? d->status : 127;
}

}  // namespace vanta
