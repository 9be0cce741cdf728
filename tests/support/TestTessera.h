// Small helpers over the library's own types. Header-only: test programs take
// the library either as libtessera.so or as linked-in objects, and the support
// archive links neither.
#pragma once

#include <string>
#include <vector>

#include "RecordingLog.h"
#include "Tessera.h"
#include "TestOcsp.h"
#include "TestPki.h"

namespace tessera_test {

using Bytes = std::vector<unsigned char>;

// What an action threw: code 0 when it returned. Messages are ASCII.
struct Thrown {
    int code = 0;
    std::string message;
    bool byOcspLibrary = false;
};

inline std::string Narrow(const qorstd::QorStringW& text) {
    const std::wstring wide(text.c_str());
    return std::string(wide.begin(), wide.end());
}

template <class Action>
Thrown Catch(Action&& action) {
    try {
        action();
    } catch (const qorstd::QorException& e) {
        return {e.GetErrorCode(), Narrow(e.GetErrorMessage()), false};
    } catch (const QorOcsp2Lib::OcspException& e) {
        return {e.GetErrorCode(), Narrow(e.GetErrorMessage()), true};
    }
    return {};
}

template <class Action>
int CodeOf(Action&& action) {
    return Catch(action).code;
}

// The certificate sharing the test PKI's handle.
inline TesseraLib::X509Certificate Cert(const Issued& issued) {
    return TesseraLib::X509Certificate(issued.cert.get());
}

// The response TestOcsp makes, decoded.
inline QorOcsp2Lib::OcspResponse DecodedOcsp(const OcspResponsePlan& profile) {
    const Bytes der = MakeOcspResponse(profile);
    QorOcsp2Lib::OcspResponse response;
    response.Decode(der.data(), static_cast<unsigned long>(der.size()));
    return response;
}

inline qorstd::QorArray<unsigned char> Array(const Bytes& bytes) {
    return qorstd::QorArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size()));
}
inline qorstd::QorArray<unsigned char> Array(const std::string& text) {
    return Array(Bytes(text.begin(), text.end()));
}
inline Bytes ToBytes(const qorstd::QorArray<unsigned char>& array) {
    return Bytes(array.GetData(), array.GetData() + array.GetSize());
}

// The library logs into RecordingLog (cleared first) while the object lives;
// objects that open channels must be made after it and die before it.
class LogCapture {
public:
    LogCapture() {
        RecordingLog::Instance().Reset();
        const LoggingCallbacks table = RecordingLog::Instance().Table();
        m_active = Tessera_InitializeLogging(&table, false) == 1;
    }
    ~LogCapture() {
        Tessera_UnInitializeLogging();
        Tessera_InitializeLogging(nullptr, false);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    bool Active() const { return m_active; }

private:
    bool m_active = false;
};

// Signs `text` as a CAdES-BES with `signer`, whose key a store attached,
// and whether `openssl cms -verify` accepts it against `anchor` and gives
// `text` back; `why` gets openssl's output when it does not.
inline bool OpensslVerifiesCadesBy(const TesseraLib::X509Certificate& signer,
                                   const std::string& text, X509* anchor, std::string* why) {
    TesseraLib::SignerCades cadesSigner(signer);
    cadesSigner.SetIncludeOption(TesseraLib::SignerCms::cptIncludeSignerCertificate);
    cadesSigner.SetAttributeOption(TesseraLib::SignerCms::cptAttributeDefault);
    TesseraLib::SignedCades cades(Array(text));
    cades.Sign(cadesSigner, TesseraLib::SignedCades::cptCadesBes, 0);
    ScratchDir dir;
    dir.Write("sig.der", ToBytes(cades.Encode()));
    dir.Write("anchor.pem", CertToPem(anchor));
    const bool verified = dir.Openssl(
                              "cms -verify -binary -inform DER -in sig.der -CAfile anchor.pem "
                              "-purpose any -attime 1718452800 -out out.bin") &&
                          ReadBinaryFile(dir.Path("out.bin")) == Bytes(text.begin(), text.end());
    *why = dir.Output();
    return verified;
}

}  // namespace tessera_test
