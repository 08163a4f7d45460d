// `tarvex metrics`: the figures of the tree for a monitoring system that reads files, or that a pipe leads to.

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/metrics/figures.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/system/file_in_making.h"
#include "host/system/paths.h"
#include "host/system/tree_owner.h"
#include "host/tree/tree_root.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

struct Options {
    std::string output;
    bool is_open = false;
};

// A service that is asked anything has written what it remembers.
void LetServiceWrite(const std::string& directory) {
    try {
        if (const auto service = ServiceConnection::Try(directory)) service->Report();
    } catch (const CommandError&) {
        // The figures are worth knowing all the same.
    }
}

// A superuser may write where the owner of the tree may not, and must not read the tree but as that owner.
int ShowMetrics(const Context& context, const Options& options) {
    const std::string directory = RootDirectory(context.root_option);
    std::string text;
    {
        const AsOwnerOf owner(directory);
        CRootPath root;
        OpenTree(root, directory);
        LetServiceWrite(directory);
        const MetricForm form = options.is_open ? MetricForm::OpenMetrics : MetricForm::Text;
        text = Figures(directory).Text(MeasuredProfiles(root), {}, form);
    }
    if (options.output.empty()) {
        std::cout << text;
        return kDone;
    }
    FileInMaking file(TreePath(options.output), FileReaders::Everybody);
    file.Write(text);
    file.Keep();
    return kDone;
}

}  // namespace

void AddMetricsCommand(CLI::App& app, Context& context) {
    CLI::App* const metrics = app.add_subcommand("metrics", Tr("Print figures for a monitoring system."));
    metrics->footer(
        Tr("A file is replaced as a whole, so that the node exporter may read its folder at any moment. `tarvex serve "
           "--metrics` serves the same, and figures of the service itself, over HTTP."));
    auto options = std::make_shared<Options>();
    metrics->add_option("--output", options->output, Tr("Into this file, which everybody may read"))->type_name("FILE");
    metrics->add_flag("--openmetrics", options->is_open,
                      Tr("By the letter of OpenMetrics, for readers that do not know Prometheus's own format"));
    metrics->callback(
        [&context, options] { context.command = [&context, options] { return ShowMetrics(context, *options); }; });
}

}  // namespace tarvex::host
