#include "Subprocess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace clitest {
namespace {

std::string TakeFile(int fd, const std::string& path) {
    close(fd);
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    unlink(path.c_str());
    return text.str();
}

int CaptureFile(std::string& path) {
    const char* tmp = std::getenv("TMPDIR");
    path = std::string(tmp && *tmp ? tmp : P_tmpdir) + "/isodata-capture-XXXXXX";
    const int fd = mkstemp(path.data());
    if (fd < 0) throw std::runtime_error("cannot create a capture file");
    return fd;
}

} // namespace

ProcessResult RunProcess(const std::vector<std::string>& args, const std::vector<std::string>& env,
                         const std::string& workDir) {
    std::string outPath, errPath;
    const int outFd = CaptureFile(outPath);
    const int errFd = CaptureFile(errPath);

    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        const int nullFd = open("/dev/null", O_RDONLY);
        dup2(nullFd, STDIN_FILENO);
        dup2(outFd, STDOUT_FILENO);
        dup2(errFd, STDERR_FILENO);
        for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
        if (!workDir.empty() && chdir(workDir.c_str()) != 0) _exit(126);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ProcessResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = TakeFile(outFd, outPath);
    result.err = TakeFile(errFd, errPath);
    return result;
}

} // namespace clitest
