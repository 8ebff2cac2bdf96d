// The first steps: start, name a unit of work, mark a stretch of it, and see what comes out.
//
// A context is the unit of work that is measured, a scope a timed stretch of work inside it. This program
// writes what it marked to its standard output, as XML: an element for each scope, the measurements inside
// it.
#include <cmath>
#include <exception>
#include <iostream>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Session.h"

using Metrics::Context;
using Metrics::MetricsOutput;

namespace {

double SumOfRoots(int count) {
    METRICS_SCOPE("sum");  // from here to the end of the block
    double sum = 0;
    for (int i = 1; i <= count; ++i) sum += std::sqrt(i);
    return sum;
}

void Work() {
    METRICS_SCOPE("work");
    SumOfRoots(1000);  // its scopes stand inside this one
    SumOfRoots(1000000);
}

void Measure() {
    const Metrics::Session session;  // measures while it lives
    MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::Xml);

    Context job = Context::Root("job");  // until it is closed, what this thread marks belongs to it
    output.WriteToStream(std::cout, job.GetContextId());
    Work();
    job.Close();

    output.Close();  // waits until everything is written
    for (const auto& error : output.GetErrors()) std::cerr << error << '\n';
}

}  // namespace

int main() {
    Work();  // not measured: nothing is started, and the marks cost next to nothing
    try {
        Measure();
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
