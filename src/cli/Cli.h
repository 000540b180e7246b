#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

namespace kestrova::cli {

// Exit codes of every command.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// True when the arguments ask for a command's help.
bool wantsHelp(const QStringList& args);
// Writes "kestrova-cli: WHY" and the command's usage to the error output; returns kExitUsage.
int usageError(const QString& usage, const QString& why);

struct GlobalOptions
{
    QString dataDir;       // resolved data directory
    QString portfolioFile; // --portfolio, may be empty (then DefaultFile of the settings)
    bool verbose = false;
};

struct Command
{
    QString name;    // "portfolio show": words separated by one blank
    QString summary; // one line for the command list
    // Receives the arguments after the command words; prints its own --help.
    std::function<int(const GlobalOptions&, const QStringList& args)> run;
};

class Registry
{
public:
    void add(Command c) { m_commands.push_back(std::move(c)); }
    const std::vector<Command>& commands() const { return m_commands; }

private:
    std::vector<Command> m_commands;
};

// Each subsystem's commands file registers its commands here.
void registerPortfolioCommands(Registry& r);
void registerOptionsCommands(Registry& r);
void registerQuotesCommands(Registry& r);
void registerPageCommands(Registry& r);
void registerSimCommands(Registry& r);
void registerAppCommands(Registry& r);
void registerMailCommands(Registry& r);
void registerHistoryCommands(Registry& r);
void registerSourcesCommands(Registry& r);

// Parses global options, finds the command and runs it.
int run(const QStringList& arguments);

} // namespace kestrova::cli
