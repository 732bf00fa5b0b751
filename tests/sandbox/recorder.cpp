// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// Stands in for the external programs in tests, under many names: writes the
// name it was called by and its arguments to the journal, then does what the
// test's answer script for that name says. Plain C++, as tests start thousands.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char *JOURNAL = "/tmp/standins/journal";
constexpr const char *ANSWERS = "/tmp/standins/answers/";
const std::string STANDIN_PATH = "/tmp/standins/bin:";

bool IsPlain(const std::string &text)
{
    static const char *const plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                                     "_-+=.,:/@%";
    return !text.empty() && text.find_first_not_of(plain) == std::string::npos;
}

/// The argument as a shell would take it: in single quotes when it is empty or
/// holds unusual characters. A line feed stays as it is, within the quotes.
std::string Quoted(const std::string &text)
{
    if (IsPlain(text))
        return text;
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

std::string BaseName(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

/// One write per line, so that programs running at once never mix theirs.
bool AppendToJournal(const std::string &line)
{
    const int journal = open(JOURNAL, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (journal < 0)
        return false;
    const ssize_t written = write(journal, line.data(), line.size());
    close(journal);
    return written == static_cast<ssize_t>(line.size());
}

/// Within an answer script the plain names are the real programs.
void LeaveStandinsPath()
{
    const char *const path = std::getenv("PATH");
    if (path != nullptr && std::strncmp(path, STANDIN_PATH.c_str(), STANDIN_PATH.size()) == 0)
        setenv("PATH", path + STANDIN_PATH.size(), 1);
}

/// Returns only when there is no answer script.
void BecomeAnswer(const std::string &name, char **argv)
{
    std::string script = ANSWERS + name;
    if (access(script.c_str(), R_OK) != 0)
        return;
    LeaveStandinsPath();
    std::string shell = "sh";
    std::vector<char *> arguments{shell.data(), script.data()};
    for (char **argument = argv + 1; *argument != nullptr; ++argument)
        arguments.push_back(*argument);
    arguments.push_back(nullptr);
    execv("/bin/sh", arguments.data());
}

} // namespace

int main(int argc, char **argv)
{
    const std::string name = BaseName(argc > 0 ? argv[0] : "");
    std::string line = Quoted(name);
    for (int i = 1; i < argc; ++i)
        line += " " + Quoted(argv[i]);
    line += "\n";
    if (!AppendToJournal(line)) {
        std::fprintf(stderr, "recorder: %s: %s\n", JOURNAL, std::strerror(errno));
        return 125;
    }
    BecomeAnswer(name, argv);
    return 0;
}
