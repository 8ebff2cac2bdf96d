// From one process to another: the first writes what it marked into a buffer, which travels as bytes; the
// second merges it, and the first one's work appears inside its own context, with ids of this process.
//
//     06_processes write FILE     does some work and leaves the buffer in FILE
//     06_processes merge FILE     merges it and prints the whole as XML
#include <cstdint>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsManager.h"
#include "metrics/MetricsOutput.h"
#include "metrics/MetricsValueBuffer.h"
#include "metrics/Session.h"

using namespace Metrics;

namespace {

void Write(const std::string& file) {
    const Session session;
    MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::Buffer);
    Context remote = Context::Root("remote");
    const auto id = remote.GetContextId();
    output.WriteToBuffer(id);
    {
        METRICS_SCOPE("far-away");
        METRICS_VALUE("answer", 42);
    }
    remote.Close();
    output.Close();
    const auto& bytes = output.GetBuffer(id)->Bytes();
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + file);
}

void Merge(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    if (!in.is_open()) throw std::runtime_error("cannot read " + file);

    const Session session;
    MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::Xml);
    output.MuteVolatileData();
    const Context local = Context::Root("local");
    output.WriteToStream(std::cout, local.GetContextId());
    METRICS_SCOPE("merge");
    // The bytes are checked as they are read; what is damaged is an exception.
    MetricsManager::GetInstance().MergeRemoteEvents(std::make_shared<MetricsValueBuffer>(std::move(bytes)));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const std::string command = argc == 3 ? argv[1] : "";
        if (command == "write") return Write(argv[2]), 0;
        if (command == "merge") return Merge(argv[2]), 0;
        std::cerr << "usage: 06_processes write|merge FILE\n";
        return 64;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
