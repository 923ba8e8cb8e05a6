#include "Registry.h"

#include <algorithm>
#include <map>

namespace quillet::tool {

namespace {

std::map<std::string, GroupInstaller>& Groups() {
    static std::map<std::string, GroupInstaller> groups;
    return groups;
}

std::vector<InfoProbe>& MutableProbes() {
    static std::vector<InfoProbe> probes;
    return probes;
}

std::vector<DemoStep>& MutableSteps() {
    static std::vector<DemoStep> steps;
    return steps;
}

}  // namespace

void RegisterGroup(std::string name, GroupInstaller install) {
    Groups().emplace(std::move(name), std::move(install));
}

void InstallGroups(CLI::App& app) {
    for (auto& [name, install] : Groups()) install(app);
}

void RegisterInfoProbe(InfoProbe probe) {
    auto& probes = MutableProbes();
    probes.push_back(std::move(probe));
    std::stable_sort(probes.begin(), probes.end(),
                     [](const InfoProbe& a, const InfoProbe& b) { return a.priority < b.priority; });
}

const std::vector<InfoProbe>& InfoProbes() { return MutableProbes(); }

void RegisterDemoStep(DemoStep step) {
    auto& steps = MutableSteps();
    steps.push_back(std::move(step));
    std::stable_sort(steps.begin(), steps.end(),
                     [](const DemoStep& a, const DemoStep& b) { return a.order < b.order; });
}

const std::vector<DemoStep>& DemoSteps() { return MutableSteps(); }

}  // namespace quillet::tool
