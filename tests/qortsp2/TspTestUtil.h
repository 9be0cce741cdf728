// Helpers shared by the time-stamp tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "QorString.h"
#include "TspException.h"
#include "TspTypes.h"

namespace tsp_test {

// The code of the TspException that `action` throws; -1 when it throws none
// (a test failure is recorded then, naming `what`).
inline int CodeOf(const std::function<void()>& action, const std::string& what,
                  std::wstring* message = nullptr) {
    try {
        action();
    } catch (const QorTsp2Lib::TspException& e) {
        if (message != nullptr) {
            *message = e.GetErrorMessage().c_str();
        }
        return e.GetErrorCode();
    }
    ADD_FAILURE() << what << ": no TspException was thrown";
    return -1;
}

// An owned OpenSSL handle in tests.
template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* handle) const { Free(handle); }
};
template <class T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, Deleter<T, Free>>;

inline std::vector<unsigned char> ToBytes(const qorstd::QorArray<unsigned char>& array) {
    return std::vector<unsigned char>(array.GetData(), array.GetData() + array.GetSize());
}

inline std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

}  // namespace tsp_test
