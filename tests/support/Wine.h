#pragma once

namespace Metrics::Testing {

/// Whether Windows is played by Wine. There a process that ends while its threads allocate may hang, with or
/// without this library: a thread that is ended inside the heap's lock leaves a lock of Wine's own behind.
bool UnderWine();

}  // namespace Metrics::Testing
