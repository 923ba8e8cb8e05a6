// quillet: the command-line tool over the library.
//   quillet GROUP COMMAND [options]
// Errors print one line on stderr and exit 1; usage errors exit 2.

#include <cstdio>
#include <exception>

#include "Registry.h"

int main(int argc, char** argv) {
    using namespace quillet::tool;
    CLI::App app{"Quillet: direct access to file-based geographic data stores", "quillet"};
    app.set_version_flag("--version", "quillet " QUILLET_VERSION);
    app.require_subcommand(1);
    InstallGroups(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return 2;
    } catch (const UsageError& e) {
        std::fprintf(stderr, "quillet: %s\n", e.what());
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "quillet: %s\n", e.what());
        return 1;
    }
    return 0;
}
