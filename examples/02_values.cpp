// What a scope can tell besides its time: values inside it, attributes on it, and measurements of the system.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsBitsUtils.h"
#include "metrics/MetricsManager.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Session.h"

using namespace Metrics;

namespace {

struct Order {
    std::string customer;
    std::vector<double> prices;
};

void Handle(const Order& order) {
    Context context = Context::Child("order");
    context.AddAttribute("customer",
                         order.customer);     // before the first scope: it stands on the element of the order
    context.AddNameValue("currency", "EUR");  // the same as an element inside it

    Scope sum(MetricsValue::Ref("price"));  // the long form of METRICS_SCOPE, for who wants the object
    double total = 0;
    int row = 0;
    for (const double price : order.prices) {
        sum.EmitAttribute(FourCC("row"), ++row);  // on the next scope that opens
        METRICS_SCOPE("item");
        METRICS_VALUE("price", price);  // on the innermost scope; numbers, truth values, texts and times
        total += price;
    }
    sum.Emit(FourCC("sum"), total);  // a name of up to eight characters needs no memory of its own
    sum.Emit(EightCC("items"), order.prices.size());
}

void Measure() {
    // What every scope measures. "wall" would tell how long each took, "time" also where processor time went,
    // "mem" where memory did.
    MetricsManager::GetInstance().SetBits(MetricsBitsUtils::GetMetricsBitsFromMnemonicList("loc"), false);
    const Session session;
    MetricsOutput output(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::Xml);
    output.MuteVolatileData();  // nothing that differs from run to run

    Context day = Context::Root("day");
    output.WriteToStream(std::cout, day.GetContextId());
    METRICS_SCOPE("orders");
    Handle({"Smith & Daughters", {9.5, 20.25}});
    Handle({"O'Neill", {1}});
    // The context ends with this block, after the scope; the output gets what is left before the session
    // ends.
}

}  // namespace

int main() {
    try {
        Measure();
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
