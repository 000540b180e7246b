#include "cli/Cli.h"

namespace kestrova::cli {

void registerPortfolioCommands(Registry&)
{
}

} // namespace kestrova::cli
