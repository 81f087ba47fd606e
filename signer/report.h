#pragma once

// Messages to the caller of one operation. They are formatted as UTF-8 and passed as UTF-16; without a callback nothing
// is formatted.

#include <string>
#include <utility>

#include "format.h"
#include "text.h"
#include "zosigner.h"

namespace zosigner {

class Report {
  public:
    Report() = default;
    Report(ZoSignerLogCallback callback, void* context) : callback_(callback), context_(context) {}

    template <typename... Args>
    void Info(zo::FormatString<Args...> format, Args&&... args) const {
        Send(ZOSIG_LOG_INFO, format, std::forward<Args>(args)...);
    }
    template <typename... Args>
    void Warning(zo::FormatString<Args...> format, Args&&... args) const {
        Send(ZOSIG_LOG_WARNING, format, std::forward<Args>(args)...);
    }
    template <typename... Args>
    void Error(zo::FormatString<Args...> format, Args&&... args) const {
        Send(ZOSIG_LOG_ERROR, format, std::forward<Args>(args)...);
    }

  private:
    template <typename... Args>
    void Send(ZoSignerLogLevel level, zo::FormatString<Args...> format, Args&&... args) const {
        if (callback_ == nullptr) return;
        callback_(context_, level, zo::WideFromUtf8(zo::Format(format, std::forward<Args>(args)...)).c_str());
    }

    ZoSignerLogCallback callback_ = nullptr;
    void* context_ = nullptr;
};

}  // namespace zosigner
