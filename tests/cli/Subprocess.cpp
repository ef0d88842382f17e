#include "Subprocess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace clitest {
namespace {

// The child writes to unnamed files rather than pipes, so that however much
// it prints it never blocks waiting for the test to read.
std::string TakeAll(FILE* file) {
    std::string text;
    std::rewind(file);
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) text.append(buffer, n);
    std::fclose(file);
    return text;
}

} // namespace

ProcessResult RunProcess(const std::vector<std::string>& args, const std::vector<std::string>& env,
                         const std::string& workDir) {
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(fileno(out), STDOUT_FILENO);
        dup2(fileno(err), STDERR_FILENO);
        for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
        if (chdir(workDir.c_str()) == 0) execv(argv[0], argv.data());
        _exit(127);
    }
    int status = -1;  // reads as "did not exit normally" should fork fail
    if (pid > 0) waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, TakeAll(out), TakeAll(err)};
}

} // namespace clitest
