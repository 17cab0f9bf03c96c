// A command of vrxctl: its options, and what it does with them. vrxctl.cpp has the table of all.
//
//     struct ClearCommand : Command {
//         void define(OptionParser& command) override;  // command.add("SERIAL", serial, "...").required();
//         int run() override;                       // clearAlarm(serial); return EX_OK;
//         std::uint32_t serial = 0;
//     };
#pragma once

namespace vrx {

class OptionParser;

struct Command {
    Command() = default;
    Command(const Command&) = delete;  // the command line writes to its members
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    // Options and subcommands of its own.
    virtual void define(OptionParser& command) = 0;

    // After all options have been read. Gives the exit code (sysexits.h); what goes wrong on the way is thrown:
    // AgentCallError and BackendCallError for who does not answer, any other std::exception for what was given.
    [[nodiscard]] virtual int run() = 0;
};

}  // namespace vrx
