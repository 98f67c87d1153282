#pragma once

#include "hubs/DriverConsole.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace testing_support {

// Collects what the driver prints and logs, shared by every copy of the console it hands out.
class ConsoleRecorder {
public:
    DriverConsole console() {
        auto lines = lines_;
        return {[lines](const std::string& text) { lines->printed.push_back(text); },
                [lines](const std::string& text) { lines->logged.push_back(text); }};
    }
    const std::vector<std::string>& printed() const { return lines_->printed; }
    const std::vector<std::string>& logged() const { return lines_->logged; }
    bool logs(const std::string& line) const {
        return std::find(logged().begin(), logged().end(), line) != logged().end();
    }
    void clear() { *lines_ = {}; }

private:
    struct Lines {
        std::vector<std::string> printed, logged;
    };
    std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
};

}  // namespace testing_support
