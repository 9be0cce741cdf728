// Owning smart pointers for OpenSSL handles: one deleter per type.
//
// `get0` functions borrow, `get1`/`new` functions own; for `set0`/`add0`
// functions release() the pointer only after the call succeeded.
#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/engine.h>

#include <memory>

namespace TesseraLib {

template <auto FreeFn>
struct OpenSslDeleter {
    template <class T>
    void operator()(T* handle) const noexcept {
        if (handle != nullptr) {
            FreeFn(handle);
        }
    }
};

template <class T, auto FreeFn>
using OpenSslPtr = std::unique_ptr<T, OpenSslDeleter<FreeFn>>;

using Asn1ObjectPtr = OpenSslPtr<ASN1_OBJECT, ASN1_OBJECT_free>;
using BioPtr = OpenSslPtr<BIO, BIO_free_all>;
using EnginePtr = OpenSslPtr<ENGINE, ENGINE_free>;

}  // namespace TesseraLib
