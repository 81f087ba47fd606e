#ifndef ZOSTATUS_HPP
#define ZOSTATUS_HPP

/* ZoProtectorLib for C++20: statuses as std::error_code, and what the three C++ headers share.
 *
 * Header-only over the C functions. docs/cpp.md says how to use it; the C headers say what each function does.
 *
 * Every function takes an ErrorTo as its last argument. Leave it out, and a failure is thrown as std::system_error; pass
 * a std::error_code, and the failure (or success) is written there instead:
 *
 *     zoprotector::StartDriver();                       // throws
 *     std::error_code error;
 *     zoprotector::StartDriver(error);                  // does not
 *     if (error == zostatus::Status::kDriverNotFound) ...
 */

#include <concepts>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

#include "zoprotector_status.h"
#include "zosigner.h"

namespace zostatus {

/* The statuses that have a name. Any other failure compares with std::errc or by its value(). */
enum class Status : std::int32_t {
    kOk = ZOP_OK,
    kNotInitialized = ZOP_E_NOT_INITIALIZED,
    kDriverNotFound = ZOP_E_DRIVER_NOT_FOUND,
    kVersionMismatch = ZOP_E_VERSION_MISMATCH,
    kAccessDenied = ZOP_E_ACCESS_DENIED,
    kQuotaExceeded = ZOP_E_QUOTA_EXCEEDED,
    kAlreadyExists = ZOP_E_ALREADY_EXISTS,
    kNotFound = ZOP_E_NOT_FOUND,
    kInvalidArgument = ZOP_E_INVALID_ARG,
    kFailed = ZOP_E_FAILED,
    kStandardInvalidArgument = ZOP_E_STANDARD_INVALID_ARG,
    kThumbprintMismatch = ZOSIG_E_THUMBPRINT_MISMATCH,
    kVerifyFailed = ZOSIG_E_VERIFY_FAILED,
    kBadManifest = ZOSIG_E_BAD_MANIFEST,
    kNoKey = ZOSIG_E_NO_KEY,
    kTampered = ZOSIG_E_TAMPERED,
    kCancelled = static_cast<std::int32_t>(0x80004004),
    kUnspecified = static_cast<std::int32_t>(0x80004005),
    kTimedOut = ZOP_STATUS_FROM_WIN32(0x102),
    kKeyTooShort = static_cast<std::int32_t>(0xD000000D),
    kKeyNotSupported = static_cast<std::int32_t>(0xD00000BB),
};

namespace detail {

struct Sentence {
    Status status;
    const char* text;
    std::errc condition; /* errc{} where the standard has none */
};

inline constexpr Sentence kSentences[] = {
    {Status::kOk, "The call succeeded.", {}},
    {Status::kNotInitialized, "There is no open channel to the driver.", std::errc::not_connected},
    {Status::kDriverNotFound, "The driver, its service or its file was not found.", std::errc::no_such_device},
    {Status::kVersionMismatch, "The driver's version does not fit.", std::errc::not_supported},
    {Status::kAccessDenied, "Access was denied.", std::errc::permission_denied},
    {Status::kQuotaExceeded, "The driver's table is full.", std::errc::no_space_on_device},
    {Status::kAlreadyExists, "The driver has this rule already.", std::errc::file_exists},
    {Status::kNotFound, "The driver has no such rule, or knows no such process.", std::errc::no_such_file_or_directory},
    {Status::kInvalidArgument, "An argument is not acceptable.", std::errc::invalid_argument},
    {Status::kFailed, "The call failed; the diagnostic log may name the error.", std::errc::io_error},
    {Status::kStandardInvalidArgument, "An argument is not acceptable.", std::errc::invalid_argument},
    {Status::kThumbprintMismatch, "The key is not the one that signed the manifest.", std::errc::permission_denied},
    {Status::kVerifyFailed, "The folder differs from its manifest.", {}},
    {Status::kBadManifest, "The manifest is malformed.", std::errc::bad_message},
    {Status::kNoKey, "No key could be loaded from the key store.", std::errc::no_such_file_or_directory},
    {Status::kTampered, "The manifest was changed after it was signed, or another key signed it.",
     std::errc::permission_denied},
    {Status::kCancelled, "The call was cancelled.", std::errc::operation_canceled},
    {Status::kUnspecified, "The call failed.", std::errc::io_error},
    {Status::kTimedOut, "The network did not come up in time, or a cancel ended the wait.", std::errc::timed_out},
    {Status::kKeyTooShort, "The key is shorter than the header of a key.", std::errc::invalid_argument},
    {Status::kKeyNotSupported, "The key is not a whole RSA key of 2048 bits.", std::errc::invalid_argument},
};

[[nodiscard]] constexpr const Sentence* Find(int status) noexcept {
    for (const Sentence& row : kSentences) {
        if (static_cast<int>(row.status) == status) return &row;
    }
    return nullptr;
}

[[nodiscard]] constexpr bool IsWin32(int status) noexcept {
    return (static_cast<std::uint32_t>(status) & 0xFFFF0000u) == 0x80070000u;
}

class Category final : public std::error_category {
  public:
    [[nodiscard]] const char* name() const noexcept override { return "ZoProtectorLib"; }

    [[nodiscard]] std::string message(int status) const override {
        if (const Sentence* row = Find(status)) return row->text;
        if (IsWin32(status)) return std::system_category().message(status & 0xFFFF);
        char text[64];
        std::snprintf(text, sizeof text, "The call failed with status 0x%08X.", static_cast<unsigned>(status));
        return text;
    }

    [[nodiscard]] std::error_condition default_error_condition(int status) const noexcept override {
        if (const Sentence* row = Find(status); row != nullptr && row->condition != std::errc{}) return row->condition;
        if (IsWin32(status)) return std::system_category().default_error_condition(status & 0xFFFF);
        return {status, *this};
    }
};

}  // namespace detail

/* One object for each module (EXE or DLL) that includes this header: compare codes within one module. */
[[nodiscard]] inline const std::error_category& StatusCategory() noexcept {
    static const detail::Category category;
    return category;
}

/* A status of any function as an error code; success, and a positive number, is the code that counts as false. */
[[nodiscard]] inline std::error_code CodeOf(std::int32_t status) noexcept {
    return {status < 0 ? status : 0, StatusCategory()};
}

[[nodiscard]] inline std::error_code make_error_code(Status status) noexcept {
    return CodeOf(static_cast<std::int32_t>(status));
}

/* Where a failure goes: by default it is thrown; a std::error_code that is given gets it instead. */
class ErrorTo {
  public:
    ErrorTo() = default;
    ErrorTo(std::error_code& error) noexcept : error_(&error) {}

    /* Whether the call succeeded. what is the name of the function. */
    bool Take(std::int32_t status, const char* what) const {
        if (error_ != nullptr) {
            *error_ = CodeOf(status);
        } else if (status < 0) {
            throw std::system_error(CodeOf(status), what);
        }
        return status >= 0;
    }

    [[nodiscard]] bool Throws() const noexcept { return error_ == nullptr; }

  private:
    std::error_code* error_ = nullptr;
};

/* Zero-terminated UTF-16 that its owner keeps until the call returns: a literal, a std::wstring or a
 * std::filesystem::path. No text is a null pointer. */
class Text {
  public:
    Text() = default;
    Text(const wchar_t* text) noexcept : text_(text) {}
    template <typename Owner>
        requires requires(const Owner& owner) {
            { owner.c_str() } -> std::convertible_to<const wchar_t*>;
        }
    Text(const Owner& owner) noexcept : text_(owner.c_str()) {}

    [[nodiscard]] const wchar_t* Get() const noexcept { return text_; }

  private:
    const wchar_t* text_ = nullptr;
};

/* A callable that its owner keeps until the call returns, such as a lambda that is written as an argument, or a plain
 * function. Never keep one longer. */
template <typename Signature>
class FunctionRef;

template <typename Result, typename... Arguments>
class FunctionRef<Result(Arguments...)> {
  public:
    FunctionRef() = default;
    template <typename Callable>
        requires(!std::is_same_v<std::remove_cvref_t<Callable>, FunctionRef> &&
                 !std::is_function_v<std::remove_reference_t<Callable>> &&
                 std::is_invocable_r_v<Result, Callable&, Arguments...>)
    FunctionRef(Callable&& callable) noexcept
        : object_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
          call_([](void* object, Arguments... arguments) -> Result {
              return (*static_cast<std::remove_reference_t<Callable>*>(object))(static_cast<Arguments>(arguments)...);
          }) {}
    FunctionRef(Result (*function)(Arguments...)) noexcept : object_(reinterpret_cast<void*>(function)) {
        if (function == nullptr) return;
        call_ = [](void* object, Arguments... arguments) -> Result {
            return reinterpret_cast<Result (*)(Arguments...)>(object)(static_cast<Arguments>(arguments)...);
        };
    }

    explicit operator bool() const noexcept { return call_ != nullptr; }
    Result operator()(Arguments... arguments) const { return call_(object_, static_cast<Arguments>(arguments)...); }

  private:
    void* object_ = nullptr;
    Result (*call_)(void*, Arguments...) = nullptr;
};

/* Keeps the first exception that a callback raises, so that none passes through the library's own code, and raises it
 * again once the call has returned. */
class Carrier {
  public:
    /* Runs a callback and gives its answer; gives failed when it raises, and from then on without running it. */
    template <typename Work, typename Answer>
    Answer Guard(Answer failed, const Work& work) noexcept {
        if (!raised_) {
            try {
                return work();
            } catch (...) {
                raised_ = std::current_exception();
            }
        }
        return failed;
    }

    [[nodiscard]] bool Holds() const noexcept { return raised_ != nullptr; }
    void Rethrow() {
        if (raised_) std::rethrow_exception(std::exchange(raised_, nullptr));
    }

  private:
    std::exception_ptr raised_;
};

}  // namespace zostatus

template <>
struct std::is_error_code_enum<zostatus::Status> : std::true_type {};

#endif
