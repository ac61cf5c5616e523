// aclsh: the operator's shell. Speaks to the manager of one route processor.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <fstream>
#include <iostream>

#include "cli/interactive.h"
#include "cli/request/load.h"

namespace {

// Commands from a stream that is no terminal, one a line. The exit status.
// Each line is answered before the next one is read: somebody at the other end may wait for it.
int runLines(cliSession* session, std::istream& in, std::string_view source) {
    bool good = true;
    uint32_t number = 0;
    for (std::string line; !session->done && std::getline(in, line);)
        if (!sessionRun(session, line, {source, ++number})) good = false;
    return sessionExitStatus(*session, good);
}

int runFile(cliSession* session, const std::string& file) {
    if (file == "-") return loadRun(session, STDIN_FILENO, "-");
    int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        reportText(stderr, file + ": " + strerror(errno));
        return 1;
    }
    int status = loadRun(session, fd, file);
    close(fd);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    cliSession session;
    cliOptions& o = session.options;
    std::string file;
    std::vector<std::string> commands;
    double timeout = 10;

    CLI::App app{"Shell of the access-list manager"};
    app.add_option("--rundir", o.runDir, "run folder (default $ACL_RUNDIR, else /run/aclmgr)");
    app.add_option("--chassis", o.chassisFile, "chassis description (default RUNDIR/chassis.json)");
    app.add_option("--rp", o.rp, "route processor")->check(CLI::Range(0, 1));
    auto* command = app.add_option("-c", commands, "run a command (repeatable)");
    command->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    auto* load = app.add_option("-f", file, "load a configuration file, - is standard input");
    load->excludes(command);
    app.add_flag("-C", o.checkOnly, "check the syntax only: nothing is sent");
    app.add_flag("--json", o.json, "show commands print JSON");
    app.add_option("--timeout", timeout, "seconds to wait for an answer (default 10)")
        ->check(CLI::Range(0.001, 86400.0));
    app.add_flag("--compile", o.compile, "write the requests of a file's lines, for the manager")
        ->needs(load);
    CLI11_PARSE(app, argc, argv);

    // What was not given follows from what was.
    o.runDir = zekRunDir(o.runDir);
    if (o.chassisFile.empty()) o.chassisFile = o.runDir + "/chassis.json";
    o.timeoutMs = static_cast<int>(std::lround(timeout * 1000));
    // Compiling sends nothing either.
    o.checkOnly |= o.compile;
    // What is compiled stands for a whole configuration, which begins in the normal mode.
    if (!o.compile) sessionReadMaskMode(&session);

    if (!file.empty()) return runFile(&session, file);
    if (!commands.empty()) {
        bool good = true;
        uint32_t number = 0;
        for (const std::string& c : commands)
            if (!session.done && !sessionRun(&session, c, {"command", ++number})) good = false;
        return sessionExitStatus(session, good);
    }
    if (isatty(STDIN_FILENO) != 0) {
        o.interactive = true;
        return interactiveRun(&session);
    }
    // A file is looked through first, as by -f; through a pipe somebody may wait for each answer.
    if (lseek(STDIN_FILENO, 0, SEEK_CUR) >= 0)
        (void)listNamesReadAhead(&session.lists, STDIN_FILENO);
    return runLines(&session, std::cin, "stdin");
}
