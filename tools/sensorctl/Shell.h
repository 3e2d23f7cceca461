// The command language of the simulated camera: one command a line, each
// answered by exactly one result line "= ...", after any lines it lists.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Camera.h"

namespace sensorctl {

class Shell {
public:
    Shell(Camera& camera, std::ostream& out);

    // Runs one line. false when the line asked to quit.
    bool execute(const std::string& line);
    // Runs every line of in until its end or quit.
    void run(std::istream& in);
    // Prints each command, after "> ", before its output and answer, so that
    // a transcript shows command and answer side by side. Blank lines and
    // "#" lines are not commands and are not printed.
    void setEcho(bool bEcho) { m_bEcho = bEcho; }

    // The verbs with their usage and help, for "help" and the README.
    static std::string helpText();

    // Decodes a scheme file into one line per record; false (with a reason
    // in the text) when the file cannot be read or is not whole records.
    // Reports name the file as shown (a device path in the shell).
    static bool dumpSchemeFile(const std::string& path, std::ostream& out, std::string& error,
                               const std::string& shownName = std::string());

private:
    struct Verb;
    static const std::vector<Verb>& verbs();

    // Each verb's work: fills the result (the text after "= ") or the error.
    std::string result(bool b) const { return b ? "true" : "false"; }

    Camera& m_camera;
    std::ostream& m_out;
    std::vector<std::string> m_args;
    std::string m_strRest; // the line after the verb, for texts with blanks
    std::string m_strError;
    bool m_bQuit = false;
    bool m_bEcho = false;

    friend struct ShellVerbs;
};

} // namespace sensorctl
