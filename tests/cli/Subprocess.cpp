#include "Subprocess.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

namespace clitest {
namespace {

// The child writes to unnamed files rather than pipes, so that however much
// it prints it never blocks waiting for the test to read.
std::string Contents(FILE* file) {
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = pread(fileno(file), buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
        text.append(buffer, static_cast<size_t>(n));
    return text;
}

// Waits for the child, sending the interruption when its marker shows up;
// usage receives the child's resource use once it has ended.
int Watch(pid_t pid, FILE* out, const Interruption& interruption, bool& interrupted, rusage& usage) {
    bool sent = interruption.signal == 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    int status = 0;
    while (wait4(pid, &status, sent ? 0 : WNOHANG, &usage) == 0) {
        if (Contents(out).find(interruption.marker) != std::string::npos) {
            kill(interruption.toGroup ? -pid : pid, interruption.signal);
            if (interruption.whileStopped) {
                interruption.whileStopped();
                kill(interruption.toGroup ? -pid : pid, SIGCONT);
            }
            sent = interrupted = true;
        } else if (std::chrono::steady_clock::now() > deadline) {
            kill(-pid, SIGKILL);
            sent = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return status;
}

} // namespace

ProcessResult RunProcess(const std::vector<std::string>& args, const std::vector<std::string>& env,
                         const std::string& workDir, const Interruption& interruption) {
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);  // a group of its own, so a group signal spares the test
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(fileno(out), STDOUT_FILENO);
        dup2(fileno(err), STDERR_FILENO);
        for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
        if (chdir(workDir.c_str()) == 0) execv(argv[0], argv.data());
        _exit(127);
    }
    setpgid(pid, pid);  // also from here, so the group exists before any signal
    bool interrupted = false;
    rusage usage{};
    const int status = pid > 0 ? Watch(pid, out, interruption, interrupted, usage) : -1;
    ProcessResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, Contents(out), Contents(err), interrupted,
                         usage.ru_maxrss};
    std::fclose(out);
    std::fclose(err);
    return result;
}

} // namespace clitest
