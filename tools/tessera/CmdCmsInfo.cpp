// tessera info SIG
//
// Shows what a CMS signed-data message (DER, or PEM labelled CMS or PKCS7)
// carries, without verifying anything: content type and size, whether it is
// detached, the certificates, CRLs, OCSP responses and attribute
// certificates, and for every signer its identifier's certificate, digest and
// signature algorithms, signed and unsigned attribute types, signing time and
// signature time-stamps. When the message reads as a CAdES signature, each
// signer also shows its long-term form (B, T, LT or LTA) and its archive
// time-stamps, each with its time and the version of the hash index its
// token's signer carries (v1, v2, v3 or none).
#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Cli.h"
#include "CmsCli.h"
#include "SignedCades2.h"
#include "SignedCms.h"

namespace tessera_cli {

namespace {

using TesseraLib::SignedCades2;
using TesseraLib::SignedCms;

void Field(const char* label, const std::string& value, int indent = 0) {
    std::printf("%*s%-*s %s\n", indent, "", 16 - indent, (std::string(label) + ":").c_str(),
                value.c_str());
}

// Dotted OID, with OpenSSL's long name when it has one.
std::string ObjectText(const ASN1_OBJECT* object) {
    char dotted[128] = {0};
    if (OBJ_obj2txt(dotted, sizeof(dotted), object, 1) <= 0) {
        return "(unreadable)";
    }
    const int nid = OBJ_obj2nid(object);
    return nid == NID_undef ? dotted : std::string(dotted) + " (" + OBJ_nid2ln(nid) + ")";
}

std::string OidText(const char* dotted) {
    ASN1_OBJECT* object = OBJ_txt2obj(dotted, 1);
    const std::string text = object != nullptr ? ObjectText(object) : dotted;
    ASN1_OBJECT_free(object);
    return text;
}

// The attribute types of one set (signed or unsigned), in order.
template <class Count, class Get>
std::vector<std::string> AttributeTypes(Count count, Get get) {
    std::vector<std::string> types;
    for (int i = 0; i < count(); ++i) {
        const X509_ATTRIBUTE* attr = get(i);
        if (attr != nullptr) {
            types.push_back(
                ObjectText(X509_ATTRIBUTE_get0_object(const_cast<X509_ATTRIBUTE*>(attr))));
        }
    }
    return types;
}

void PrintList(const char* label, const std::vector<std::string>& items, int indent) {
    if (items.empty()) {
        Field(label, "(none)", indent);
    }
    for (const std::string& item : items) {
        Field(label, item, indent);
    }
}

const char* FormName(SignedCades2::cptCadesType form) {
    switch (form) {
        case SignedCades2::cptCades2B:
            return "B";
        case SignedCades2::cptCades2T:
            return "T";
        case SignedCades2::cptCades2Lt:
            return "LT";
        case SignedCades2::cptCades2Lta:
            return "LTA";
        default:
            return "(none)";
    }
}

// The versions of the hash index an archive token's signer carries, as
// "v1", "v3", "v1+v3" (a token may hold more than one), or "none" when the
// token or its signer cannot be read.
std::string HashIndexVersions(const QorTsp2Lib::TspTimeStamp& token) {
    std::string versions;
    Failure unreadable;
    RunCatching(
        [&] {
            const QorTsp2Lib::TspArray<unsigned char> der = token.Encode(1);
            SignedCms message;
            message.Decode(der.GetData(), static_cast<long>(der.GetSize()));
            if (message.GetSignerInfoCount() == 0) {
                return;
            }
            // OpenSSL's getters only read the signer info.
            CMS_SignerInfo* tsa =
                const_cast<CMS_SignerInfo*>(message.GetSignerInfo(0)->GetSigner());
            const std::pair<const char*, const char*> known[] = {
                {"v1", TesseraLib::ATSHashIndexAttributeBase::kOidV1},
                {"v2", TesseraLib::ATSHashIndexAttributeBase::kOidV2},
                {"v3", TesseraLib::ATSHashIndexAttributeBase::kOidV3}};
            for (const auto& version : known) {
                for (int i = 0; i < CMS_unsigned_get_attr_count(tsa); ++i) {
                    char dotted[128] = {0};
                    const X509_ATTRIBUTE* attr = CMS_unsigned_get_attr(tsa, i);
                    if (attr != nullptr &&
                        OBJ_obj2txt(dotted, sizeof(dotted),
                                    X509_ATTRIBUTE_get0_object(const_cast<X509_ATTRIBUTE*>(attr)),
                                    1) > 0 &&
                        std::string(dotted) == version.second) {
                        versions += (versions.empty() ? "" : "+") + std::string(version.first);
                        break;
                    }
                }
            }
        },
        &unreadable);
    return versions.empty() ? "none" : versions;
}

void PrintLongTerm(const SignedCades2::SignerInfo& signer) {
    Field("longTermForm", FormName(signer.GetCadesType()), 2);
    const auto& stamps = signer.GetArchiveTimeStampsV3();
    for (unsigned int i = 0; i < stamps.GetSize(); ++i) {
        const QorTsp2Lib::TspTimeStamp& token = stamps[i].GetTimeStamp();
        Field("archiveStamp",
              FormatUtc(token.GetTime()) + " (hash index " + HashIndexVersions(token) + ")", 2);
    }
}

void PrintSigner(unsigned int index, const SignedCms::SignerInfo& signer,
                 const SignedCades2::SignerInfo* longTerm) {
    std::printf("signer %u:\n", index + 1);
    Field("version", std::to_string(signer.GetVersion()), 2);
    const TesseraLib::X509Certificate& cert = signer.GetCertificate();
    Field("certificate",
          cert.GetX509() != nullptr ? Narrow(cert.GetSubjectStringX500(0).c_str()) + " (serial " +
                                          cert.GetSerialNumberStringHex().c_str() + ")"
                                    : "(not in the message)",
          2);
    Field("digest",
          std::string(signer.GetHashAlgorithmName().c_str()) + " (" +
              signer.GetHashAlgorithmOID().c_str() + ")",
          2);
    Field("signature", signer.GetSignatureAlgorithmName().c_str(), 2);
    Field(
        "contentType",
        signer.GetContentType().length() != 0 ? OidText(signer.GetContentType().c_str()) : "(none)",
        2);
    Field("signingTime",
          signer.GetSigningTime() != 0 ? FormatUtc(signer.GetSigningTime()) : "(none)", 2);
    // OpenSSL's getters only read the signer info.
    CMS_SignerInfo* si = const_cast<CMS_SignerInfo*>(signer.GetSigner());
    PrintList("signedAttr",
              AttributeTypes([&] { return CMS_signed_get_attr_count(si); },
                             [&](int i) { return CMS_signed_get_attr(si, i); }),
              2);
    PrintList("unsignedAttr",
              AttributeTypes([&] { return CMS_unsigned_get_attr_count(si); },
                             [&](int i) { return CMS_unsigned_get_attr(si, i); }),
              2);
    const auto& stamps = signer.GetSignatureTimeStamps();
    for (unsigned int i = 0; i < stamps.GetSize(); ++i) {
        Field("timeStamp", FormatUtc(stamps[i].GetTimeStamp().GetTime()), 2);
    }
    if (longTerm != nullptr) {
        PrintLongTerm(*longTerm);
    }
    Field("signatureSHA1", signer.GetSignatureValueSHA1HashHex().c_str(), 2);
}

}  // namespace

int RunInfo(const std::vector<std::string>& args) {
    const Arguments parsed = ParseArguments("info", args, {});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError("info: exactly one signature FILE is required");
    }
    std::vector<unsigned char> bytes;
    if (!ReadSignatureFile("info", parsed.positional[0], &bytes)) {
        return kExitFailure;
    }

    // Decoding errors reach main(), which prints code and description.
    SignedCms cms;
    cms.Decode(bytes.data(), static_cast<long>(bytes.size()));

    Field("contentType", OidText(cms.GetContentType().c_str()));
    Field("version", std::to_string(cms.GetVersion()));
    Field("detached", cms.IsDetached() != 0 ? "yes" : "no");
    Field("content", cms.IsDetached() != 0 ? "(not carried)"
                                           : std::to_string(cms.GetContent().GetSize()) + " bytes");
    std::vector<std::string> certs;
    for (unsigned int i = 0; i < cms.GetCertificates().GetSize(); ++i) {
        const TesseraLib::X509Certificate& cert = cms.GetCertificates()[i];
        certs.push_back(Narrow(cert.GetSubjectStringX500(0).c_str()) + " (serial " +
                        cert.GetSerialNumberStringHex().c_str() + ")");
    }
    PrintList("certificate", certs, 0);
    std::vector<std::string> crls;
    for (unsigned int i = 0; i < cms.GetCrls().GetSize(); ++i) {
        const TesseraLib::X509Crl& crl = cms.GetCrls()[i];
        crls.push_back(Narrow(crl.GetIssuerStringX500().c_str()) + " (thisUpdate " +
                       FormatUtc(crl.GetThisUpdate()) + ")");
    }
    PrintList("crl", crls, 0);
    std::vector<std::string> responses;
    for (unsigned int i = 0; i < cms.GetOcspResponses().GetSize(); ++i) {
        const QorOcsp2Lib::OcspResponse& response = cms.GetOcspResponses()[i];
        responses.push_back(Narrow(response.GetResponderName().c_str()) + " (producedAt " +
                            FormatUtc(response.GetProducedAt()) + ")");
    }
    PrintList("ocspResponse", responses, 0);
    // The long-term reading is extra: a message that is no CAdES signature
    // is still shown, without it.
    SignedCades2 cades;
    Failure notCades;
    const bool longTerm =
        RunCatching([&] { cades.Decode(bytes.data(), static_cast<long>(bytes.size())); },
                    &notCades) &&
        cades.GetSignerInfoCount() == cms.GetSignerInfoCount();
    Field("attributeCerts", std::to_string(cms.GetAttributeCerts().GetSize()));
    Field("signers", std::to_string(cms.GetSignerInfoCount()));
    for (unsigned int i = 0; i < cms.GetSignerInfoCount(); ++i) {
        PrintSigner(i, *cms.GetSignerInfo(i), longTerm ? cades.GetSignerInfo(i) : nullptr);
    }
    return kExitOk;
}

}  // namespace tessera_cli
