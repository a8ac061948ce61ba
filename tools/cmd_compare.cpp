// placeholder
#include "tools/commands.h"
namespace fbc::cli { int runCompare(const Words&) { return 2; } int runReport(const Words&) { return 2; } }
