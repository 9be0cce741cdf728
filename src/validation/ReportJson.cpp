// The JSON form of the reports (docs/validation-report.schema.json): one
// object per report, nested reports as nested objects and null where a
// report holds none, times in ISO 8601 UTC and null when not set, texts in
// UTF-8. Written from the reports' public getters only.
#include <ctime>
#include <string>

#include "QorTextConv.h"
#include "TspTimeStamp.h"
#include "ValidationBlockReport.h"
#include "ValidationReport.h"
#include "X509Certificate.h"
#include "X509Chain.h"

namespace TesseraLib {

namespace {

constexpr const char* kNull = "null";

// `utf8` as a quoted JSON string.
std::string Quote(const char* utf8) {
    static const char kHex[] = "0123456789abcdef";
    std::string out = "\"";
    for (const char* p = utf8; *p != '\0'; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    out += "\\u00";
                    out += kHex[c >> 4];
                    out += kHex[c & 0x0f];
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    out += '"';
    return out;
}

// Wide text in UTF-8; a text that does not convert becomes empty, as every
// conversion of the library does.
std::string Wide(const wchar_t* text) {
    return Quote(qorstd::text::WideToCharset(text, qorstd::text::kCharsetUtf8).c_str());
}

// Narrow texts are widened byte by byte, as Print shows them.
std::string Narrow(const char* text) {
    std::wstring wide;
    for (const char* p = text; *p != '\0'; ++p) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(*p));
    }
    return Wide(wide.c_str());
}

// 0 is "not set".
std::string Time(std::int64_t time) {
    if (time == 0) {
        return kNull;
    }
    const std::time_t seconds = static_cast<std::time_t>(time);
    std::tm parts{};
    char text[64];
    if (gmtime_r(&seconds, &parts) == nullptr ||
        std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
        return kNull;
    }
    return Quote(text);
}

// The RFC 5280 name of the reason; null for none, the number for a value
// without a name.
std::string ReasonName(X509CertificateValidationReport::RevocationReason reason) {
    using Single = QorOcsp2Lib::OcspSingleResponse;
    switch (reason) {
        case Single::ocspReasonNone:
            return kNull;
        case Single::ocspReasonUnspecified:
            return Quote("unspecified");
        case Single::ocspReasonKeyCompromise:
            return Quote("keyCompromise");
        case Single::ocspReasonCACompromise:
            return Quote("cACompromise");
        case Single::ocspReasonAffiliationChanged:
            return Quote("affiliationChanged");
        case Single::ocspReasonSuperseded:
            return Quote("superseded");
        case Single::ocspReasonCessationOfOperation:
            return Quote("cessationOfOperation");
        case Single::ocspReasonCertificateHold:
            return Quote("certificateHold");
        case Single::ocspReasonRemoveFromCRL:
            return Quote("removeFromCRL");
        case Single::ocspReasonPrivilegeWithdrawn:
            return Quote("privilegeWithdrawn");
        case Single::ocspReasonAACompromise:
            return Quote("aACompromise");
    }
    return std::to_string(static_cast<int>(reason));
}

// Members in the order they are added.
class JsonObject {
public:
    JsonObject& Add(const char* key, const std::string& json) {
        m_text += m_text.size() == 1 ? "" : ",";
        m_text += Quote(key);
        m_text += ':';
        m_text += json;
        return *this;
    }
    std::string Close() const { return m_text + "}"; }

private:
    std::string m_text = "{";
};

class JsonArray {
public:
    JsonArray& Add(const std::string& json) {
        m_text += m_text.size() == 1 ? "" : ",";
        m_text += json;
        return *this;
    }
    std::string Close() const { return m_text + "]"; }

private:
    std::string m_text = "[";
};

std::string Certificate(const X509Certificate* certificate) {
    if (certificate == nullptr) {
        return kNull;
    }
    return JsonObject()
        .Add("subject", Wide(certificate->GetSubjectStringX500(0).c_str()))
        .Add("issuer", Wide(certificate->GetIssuerStringX500(0).c_str()))
        .Add("serial", Narrow(certificate->GetSerialNumberStringHex().c_str()))
        .Close();
}

template <class Report>
std::string Nested(const Report* report) {
    return report != nullptr ? report->ToJson() : kNull;
}

std::string NarrowArray(const qorstd::QorVector<qorstd::QorString>& texts) {
    JsonArray array;
    for (unsigned int i = 0; i < texts.GetSize(); ++i) {
        array.Add(Narrow(texts[i].c_str()));
    }
    return array.Close();
}

JsonObject BlockObject(const ValidationBlockReport& report) {
    JsonObject object;
    object
        .Add("indication",
             Wide(ValidationBlockReport::cptReportStatusStrings[report.GetStatusIndication()]))
        .Add(
            "subIndication",
            Wide(ValidationBlockReport::cptReportSubStatusStrings[report.GetSubStatusIndication()]))
        .Add("issue", Wide(report.GetIssue().c_str()));
    return object;
}

JsonObject ProcessObject(const ValidationReport& report) {
    JsonObject object;
    object
        .Add("totalIndication",
             Wide(ValidationReport::cptReportTotalStatusStrings[report.GetTotalStatusIndication()]))
        .Add(
            "subIndication",
            Wide(ValidationBlockReport::cptReportSubStatusStrings[report.GetSubStatusIndication()]))
        .Add("signatureStandard",
             Wide(ValidationProcess::cptSignatureStandardStrings[report.GetSignatureStandard()]))
        .Add("validationTime", Time(report.GetValidationTime()))
        .Add("processType", std::to_string(static_cast<int>(report.GetValidationProcessType())));
    return object;
}

}  // namespace

std::string ValidationBlockReport::ToJson() const {
    return BlockObject(*this).Close();
}

std::string FormatCheckingReport::ToJson() const {
    return BlockObject(*this).Add("failureReason", Narrow(GetFailureReason().c_str())).Close();
}

std::string SigningCertificateIdentificationReport::ToJson() const {
    JsonArray warnings;
    for (unsigned int i = 0; i < GetWarnings().GetSize(); ++i) {
        warnings.Add(Wide(GetWarnings()[i].c_str()));
    }
    return BlockObject(*this).Add("warnings", warnings.Close()).Close();
}

std::string ValidationContextInitializationReport::ToJson() const {
    return BlockObject(*this)
        .Add("validationPolicyOid", Narrow(GetValidationPolicyOID().c_str()))
        .Add("additionalInfo", Narrow(GetAdditionalInfo().c_str()))
        .Close();
}

std::string RevocationFreshnessCheckerReport::ToJson() const {
    return BlockObject(*this).Close();
}

std::string X509CertificateValidationReport::ToJson() const {
    std::string chain = kNull;
    if (const X509Chain* held = GetCertificateChain(); held != nullptr) {
        JsonArray elements;
        for (unsigned int i = 0; i < held->GetElements().GetSize(); ++i) {
            elements.Add(Certificate(held->GetElements()[i].GetCertificate()));
        }
        chain = elements.Close();
    }
    return BlockObject(*this)
        .Add("certificateRevocationReason", ReasonName(GetCertificateRevocationReason()))
        .Add("certificateRevocationTime", Time(GetCertificateRevocationTime()))
        .Add("nextUpdate", Time(GetNextUpdate()))
        .Add("certificateChain", chain)
        .Add("revocationFreshnessCheckerReport", Nested(GetRevocationFreshnessCheckerReport()))
        .Close();
}

std::string CryptographicVerificationReport::ToJson() const {
    return BlockObject(*this)
        .Add("signingCertificate", Certificate(GetSigningCertificate()))
        .Add("invalidObjectUris", NarrowArray(GetInvalidObjectURIs()))
        .Close();
}

std::string SignatureAcceptanceValidationReport::ToJson() const {
    JsonArray materials;
    const qorstd::QorVector<CryptoMaterialIdentification>& ids = GetFailedCryptoMaterialIds();
    for (unsigned int i = 0; i < ids.GetSize(); ++i) {
        materials.Add(JsonObject()
                          .Add("id", Narrow(ids[i].GetID().c_str()))
                          .Add("type", std::to_string(static_cast<int>(ids[i].GetType())))
                          .Add("algorithmName", Narrow(ids[i].GetAlgorithmName().c_str()))
                          .Add("keyLength", std::to_string(ids[i].GetKeyLength()))
                          .Add("secureNotAfter", Time(ids[i].GetSecureNotAfter()))
                          .Close());
    }
    return BlockObject(*this)
        .Add("failedConstraints", NarrowArray(GetFailedConstraints()))
        .Add("failedCryptoMaterialIds", materials.Close())
        .Close();
}

std::string TimeStampValidationReport::ToJson() const {
    std::string token = kNull;
    if (const QorTsp2Lib::TspTimeStamp* held = GetTimeStamp(); held != nullptr) {
        token = JsonObject()
                    .Add("time", Time(held->GetTime()))
                    .Add("generalizedTime", Narrow(held->GetGeneralizedTime().c_str()))
                    .Close();
    }
    return BlockObject(*this)
        .Add("basicReport", Nested(GetBasicSignatureValidationProcessReport()))
        .Add("timeStamp", token)
        .Close();
}

std::string ValidationReport::ToJson() const {
    return ProcessObject(*this).Close();
}

std::string BasicSignatureValidationProcessReport::ToJson() const {
    return ProcessObject(*this)
        .Add("formatChecking", Nested(GetFormatCheckingReport()))
        .Add("signingCertificateIdentification",
             Nested(GetSigningCertificateIdentificationReport()))
        .Add("validationContextInitialization", Nested(GetValidationContextInitializationReport()))
        .Add("x509CertificateValidation", Nested(GetX509CertificateValidationReport()))
        .Add("cryptographicVerification", Nested(GetCryptographicVerificationReport()))
        .Add("signatureAcceptanceValidation", Nested(GetSignatureAcceptanceValidationReport()))
        .Close();
}

std::string SignatureWithTimeValidationProcessReport::ToJson() const {
    JsonArray timeStamps;
    const qorstd::QorVector<TimeStampValidationReport*>& held = GetSignatureTimeStampReports();
    for (unsigned int i = 0; i < held.GetSize(); ++i) {
        if (held[i] != nullptr) {
            timeStamps.Add(held[i]->ToJson());
        }
    }
    return ProcessObject(*this)
        .Add("basicReport", Nested(GetBasicSignatureValidationProcessReport()))
        .Add("signatureTimeStampReports", timeStamps.Close())
        .Add("revocationFreshnessCheckerReport", Nested(GetRevocationFreshnessCheckerReport()))
        .Add("signatureAcceptanceValidationReport",
             Nested(GetSignatureAcceptanceValidationReport()))
        .Add("bestSignatureTime", Time(GetBestSignatureTime()))
        .Close();
}

}  // namespace TesseraLib
