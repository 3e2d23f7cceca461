// Helpers shared by the file, configuration and merge tests.
#pragma once

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <tinyxml.h>

#include "tests/support/TestSupport.h"

namespace filestest {

using testsupport::captureStdout;

// An assertion report of the given expression text as it reaches stdout.
inline std::string failed(const std::string& expr) {
    return expr + "   ~~~Assertion failed.\n";
}

// A document as TinyXML prints it after parsing, so that texts that differ
// only in layout compare equal.
inline std::string canonicalXml(const std::string& text) {
    TiXmlDocument doc;
    doc.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    if (doc.Error())
        return "<parse error: " + std::string(doc.ErrorDesc()) + ">";
    TiXmlPrinter printer;
    doc.Accept(&printer);
    return printer.Str();
}

// What a child process printed on standard output and its exit code.
struct ChildRun {
    int nCode = -1;
    std::string strOut;
};

const uid_t kNobody = 65534;

// Runs f in a child process that permissions hold for. As root (the suite
// runs as root in CI) the device root folder is first given to nobody, and
// the child drops to nobody for good before f runs, so that read-only files
// and folders stop it as they stop a camera's unprivileged host. f's result
// is the child's exit code (its low byte); 126 means the child could not
// give up its privileges.
inline ChildRun runUnprivileged(const std::string& p_strRootFolder, const std::function<int()>& f) {
    ChildRun run;
    const bool bRoot = ::geteuid() == 0;
    if (bRoot && std::system(("chown -R 65534:65534 '" + p_strRootFolder + "'").c_str()) != 0)
        return run;
    int fds[2];
    if (::pipe(fds) != 0)
        return run;
    std::fflush(stdout);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        ::dup2(fds[1], STDOUT_FILENO);
        if (bRoot && (::setgroups(0, nullptr) != 0 || ::setresgid(kNobody, kNobody, kNobody) != 0 ||
                      ::setresuid(kNobody, kNobody, kNobody) != 0 || ::geteuid() != kNobody))
            ::_exit(126);
        const int nCode = f();
        std::fflush(stdout);
        ::_exit(nCode & 0xff);
    }
    ::close(fds[1]);
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof(buf))) > 0)
        run.strOut.append(buf, static_cast<size_t>(n));
    ::close(fds[0]);
    int status = 0;
    if (pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status))
        run.nCode = WEXITSTATUS(status);
    return run;
}

} // namespace filestest
