// The conformance tests on the reference host, as it is or with one promise broken:
//   host_conformance [--fault NAME] [GoogleTest's arguments] [-transcode]
//   host_conformance --list-faults

#include "host/Host.h"
#include "tests/hosts/check/Faults.h"
#include "tests/hosts/check/ReferenceHost.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using namespace Qx::HostTests;

namespace {

int listFaults()
{
    for (const Fault& fault : allFaults()) {
        std::cout << fault.name << ' ' << fault.promise << '\n';
    }
    return 0;
}

/// Takes an argument of ours out of the list. Returns its value; empty if it is not there.
std::string takeValue(std::vector<char*>& arguments, std::string_view name)
{
    const auto found = std::find(arguments.begin(), arguments.end(), name);
    if (found == arguments.end() || found + 1 == arguments.end()) {
        return {};
    }
    std::string value = *(found + 1);
    arguments.erase(found, found + 2);
    return value;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<char*> arguments(argv, argv + argc);
    if (argc == 2 && std::string_view(argv[1]) == "--list-faults") {
        return listFaults();
    }
    const std::string faultName = takeValue(arguments, "--fault");
    std::string folder = (std::filesystem::temp_directory_path() / "host-conformance-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        std::cerr << "cannot make " << folder << '\n';
        return 2;
    }
    std::vector<char*> started{argv[0], const_cast<char*>("-transcode")};
    HostUnderTest host = startReferenceHost(static_cast<int>(started.size()), started.data(), folder);
    std::filesystem::create_directory(folder + "/files");
    host.directory = folder + "/files";

    std::unique_ptr<Services> broken;
    if (!faultName.empty()) {
        broken = servicesWithFault(faultName, host);
        if (!broken) {
            std::cout << "unknown fault " << faultName << "; --list-faults lists them\n";
            return 2;
        }
        host.services = broken.get();
    }
    arguments.push_back(nullptr);
    const int result = run(static_cast<int>(arguments.size()) - 1, arguments.data(), host);
    Qx::Host::stop();
    std::filesystem::remove_all(folder);
    return result;
}
