#include "run_program.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

RunResult runVeltcheck(const std::vector<std::string>& args, const std::string& cwd,
                       const std::vector<std::string>& env, const std::string& until) {
    std::vector<std::string> words = {"veltcheck"};
    words.insert(words.end(), args.begin(), args.end());
    // Under VELT_VALGRIND the program runs in memcheck, and any memory error
    // or definite leak turns into an exit status no test expects.
    // valgrind finds "veltcheck" on PATH, so the program still sees that argv[0].
    std::string program = VELTCHECK_BIN;
    const bool underValgrind = std::getenv("VELT_VALGRIND") != nullptr;
    if (underValgrind) {
        words.insert(words.begin(), {"valgrind", "--quiet", "--error-exitcode=99", "--leak-check=full",
                                     "--errors-for-leak-kinds=definite"});
        program = "/usr/bin/valgrind";
    }
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);

    int fds[2];
    if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        if (chdir(cwd.c_str()) != 0) _exit(121);
        alarm(300);  // outlives exec: a hanging program ends with SIGALRM
        for (const auto& entry : env) putenv(const_cast<char*>(entry.c_str()));
        if (underValgrind) {
            const std::string bin = VELTCHECK_BIN;
            const std::string path =
                bin.substr(0, bin.rfind('/')) + ":" + (std::getenv("PATH") ? std::getenv("PATH") : "");
            setenv("PATH", path.c_str(), 1);
        }
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(fds[1]);
    RunResult result{{}, -1};
    char buf[65536];
    ssize_t got;
    while ((got = read(fds[0], buf, sizeof buf)) > 0) {
        result.out.append(buf, static_cast<size_t>(got));
        if (!until.empty() && result.out.find(until) != std::string::npos) {
            result.runningAtMark = waitpid(pid, nullptr, WNOHANG) == 0;
            kill(pid, SIGKILL);
            break;
        }
    }
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return result;
}
