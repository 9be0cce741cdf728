// tessera info SIG
//
// Shows what a CMS signed-data message (DER, or PEM labelled CMS or PKCS7)
// carries, without verifying anything: content type and size, whether it is
// detached, the certificates, CRLs, OCSP responses and attribute
// certificates, and for every signer its identifier's certificate, digest and
// signature algorithms, signed and unsigned attribute types, signing time and
// signature time-stamps.
#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Cli.h"
#include "CmsCli.h"
#include "SignedCms.h"

namespace tessera_cli {

namespace {

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

void PrintSigner(unsigned int index, const SignedCms::SignerInfo& signer) {
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
    Field("attributeCerts", std::to_string(cms.GetAttributeCerts().GetSize()));
    Field("signers", std::to_string(cms.GetSignerInfoCount()));
    for (unsigned int i = 0; i < cms.GetSignerInfoCount(); ++i) {
        PrintSigner(i, *cms.GetSignerInfo(i));
    }
    return kExitOk;
}

}  // namespace tessera_cli
