// Signature policy documents and signature-policy-identifier attributes
// written octet by octet, so that the library's policy decoder is checked
// against DER its own ASN.1 templates did not produce. Every optional field
// can be left out or filled in; absent std::optional members are not written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "TestPki.h"

namespace tessera_test {

using Bytes = std::vector<unsigned char>;

// ---- DER primitives ---------------------------------------------------------

// One element: the one-octet `tag`, the definite length (short or long form)
// and `content`.
Bytes DerTlv(unsigned char tag, const Bytes& content);
Bytes DerSequence(const std::vector<Bytes>& items);
// SET OF with the items in the order given (several items: sort them
// yourself for strict DER, or keep an order a test needs).
Bytes DerSet(const std::vector<Bytes>& items);
// Dotted text ("1.2.840.113549.1.9.16.2.15"); throws on anything else.
Bytes DerOid(const std::string& dotted);
Bytes DerInteger(long value);  // shortest two's complement
Bytes DerEnumerated(long value);
Bytes DerBoolean(bool value);  // TRUE is 0xFF
Bytes DerUtf8(const std::string& text);
Bytes DerIa5(const std::string& text);
Bytes DerOctets(const Bytes& octets);
Bytes DerNull();
Bytes DerGeneralizedTime(std::int64_t secondsSince1970);  // YYYYMMDDHHMMSSZ
// Context-specific [n]: Explicit wraps the whole of `inner` in a constructed
// element; Implicit replaces the (one-octet) tag of `inner`, keeping its
// primitive or constructed form.
Bytes Explicit(int n, const Bytes& inner);
Bytes Implicit(int n, const Bytes& inner);
// The DER of a name made by BuildName.
Bytes NameDer(const std::vector<NameAttribute>& attributes);

// ---- signature policy -------------------------------------------------------

struct PolicyExtension {  // SEQUENCE { extnID, extnValue OCTET STRING }
    std::string oid;
    Bytes value;
};
using Extensions = std::optional<std::vector<PolicyExtension>>;

struct DeltaTimePlan {
    long seconds = 0, minutes = 0, hours = 0, days = 0;
};
struct RevReqPlan {
    long enuRevReq = 0;  // 0 clrCheck ... 5 other
    Extensions exRevReq;
};
struct CertRevReqPlan {
    RevReqPlan endCert;
    RevReqPlan caCerts;
};
struct TrustPointPlan {
    Bytes certificateDer;
    std::optional<long> pathLenConstraint;
    std::optional<std::vector<std::string>> acceptablePolicySet;
    // Permitted subtree directoryName O=Tessera Test, excluded subtree dNSName
    // excluded.test.
    bool nameConstraints = false;
    std::optional<long> requireExplicitPolicy, inhibitPolicyMapping;
    // Writes policyConstraints even when both of its values are absent.
    bool policyConstraints = false;
};
struct SignerRulesPlan {
    std::optional<bool> externalSignedData;
    std::vector<std::string> mandatedSignedAttr, mandatedUnsignedAttr;
    std::optional<long> mandatedCertificateRef, mandatedCertificateInfo;
    Extensions extensions;
};
struct VerifierRulesPlan {
    std::vector<std::string> mandatedUnsignedAttr;
    Extensions extensions;
};
struct SigningCertTrustPlan {
    std::vector<TrustPointPlan> trustTrees;
    CertRevReqPlan revReq;
};
struct TimeStampTrustPlan {
    std::optional<std::vector<TrustPointPlan>> trustTrees;
    std::optional<CertRevReqPlan> revReq;
    bool nameConstraints = false;  // as in TrustPointPlan
    std::optional<DeltaTimePlan> cautionPeriod, signatureTimestampDelay;
};
struct AttributeTrustPlan {
    bool attributeMandated = false;
    long howCertAttribute = 0;
    std::optional<std::vector<TrustPointPlan>> trustTrees;
    std::optional<CertRevReqPlan> revReq;
    // attributeConstraints: the type constraint 2.5.4.12 (title) and the value
    // constraint title = "Signer" as an Attribute (type, SET { UTF8String }),
    // or, with `typeAndValueForm`, as AttributeTypeAndValue (no SET).
    bool withConstraints = false;
    bool typeAndValueForm = false;
};
struct AlgAndLengthPlan {
    std::string oid;
    std::optional<long> minKeyLength;
    Extensions other;
};
struct AlgorithmConstraintsPlan {
    std::optional<std::vector<AlgAndLengthPlan>> signer, eeCert, caCert, aaCert, tsaCert;
};
// The tagged fields [0]..[5] shared by commonRules and each commitment rule.
// Signer and verifier rules form one field; when only one is given the other
// is written empty.
struct CommonRulesPlan {
    std::optional<SignerRulesPlan> signerRules;
    std::optional<VerifierRulesPlan> verifierRules;
    std::optional<SigningCertTrustPlan> signingCertTrust;
    std::optional<TimeStampTrustPlan> timeStampTrust;
    std::optional<AttributeTrustPlan> attributeTrust;
    std::optional<AlgorithmConstraintsPlan> algorithmConstraints;
    Extensions extensions;
};
// The NULL choice (`empty`) or a recognised commitment type whose texts are
// written as [0]/[1] IMPLICIT UTF8String.
struct SelectedCommitmentPlan {
    bool empty = false;
    std::string oid;
    std::optional<std::string> fieldOfApplication, semantics;
};
struct CommitmentRulePlan {
    std::vector<SelectedCommitmentPlan> selCommitmentTypes;
    CommonRulesPlan rules;
};
// One GeneralName: directoryName [4] (DER of a Name), uniformResourceIdentifier
// [6], rfc822Name [1] or dNSName [2] (text).
struct IssuerNamePlan {
    enum class Kind { Directory, Uri, Email, Dns };
    Kind kind = Kind::Directory;
    Bytes directoryNameDer;
    std::string text;
};
// directoryName O=Tessera Test, CN=Policy Authority, then the URI
// http://policy.tessera.test/policy.der.
std::vector<IssuerNamePlan> DefaultPolicyIssuer();

// signPolicyHash: none, the digest (with the policy's hash algorithm) of
// DER(signPolicyHashAlg) || DER(signPolicyInfo), or the bytes of `givenHash`.
enum class PolicyHash { Absent, Fields, Given };

// The defaults make the smallest valid policy: no notAfter, empty commonRules,
// no commitment rules, no extensions.
struct PolicyPlan {
    std::string hashAlgorithmOid = "2.16.840.1.101.3.4.2.1";  // SHA-256
    bool hashAlgorithmNullParams = true;
    PolicyHash hash = PolicyHash::Fields;
    Bytes givenHash;
    std::string policyOid = "1.3.6.1.4.1.99999.1.1";
    std::int64_t dateOfIssue = UtcTime(2023, 3, 1);
    std::vector<IssuerNamePlan> issuer = DefaultPolicyIssuer();
    std::string fieldOfApplication = "Tessera test signatures";
    // DirectoryString choice: 0x0C UTF8String, 0x13 PrintableString, 0x1E
    // BMPString (ASCII text widened to two octets a character) ...
    unsigned char fieldOfApplicationTag = 0x0C;
    std::int64_t notBefore = UtcTime(2023, 3, 1);
    std::optional<std::int64_t> notAfter;
    CommonRulesPlan commonRules;
    std::vector<CommitmentRulePlan> commitmentRules;
    Extensions infoExtensions, validationPolicyExtensions;
};

// DER of the whole SignaturePolicy.
Bytes PolicyDer(const PolicyPlan& plan);
// The digest of DER(signPolicyHashAlg) || DER(signPolicyInfo) with the plan's
// hash algorithm; throws when OpenSSL has no digest of that OID.
Bytes PolicyFieldsHash(const PolicyPlan& plan);
// Every optional field present, trust points made of `trustPointCertDer`,
// notAfter 2033-03-01, two commitment rules (one with every field, one whose
// only selection is `empty`).
PolicyPlan FullPolicyPlan(const Bytes& trustPointCertDer);

// ---- signature-policy-identifier attribute (1.2.840.113549.1.9.16.2.15) ------

// A SignaturePolicyId; qualifiers are written in the order uri (SPuri),
// user notice (SPUserNotice), other. The user notice has explicitText when
// `userNotice` is set and a noticeRef (organization, notice number 1) when
// `noticeOrganization` is set; both as UTF8String or as VisibleString. The
// other qualifier carries a UTF8String "other qualifier".
struct PolicyIdPlan {
    std::string policyOid = "1.3.6.1.4.1.99999.1.1";
    std::string hashAlgorithmOid = "2.16.840.1.101.3.4.2.1";
    bool hashAlgorithmNullParams = true;
    Bytes hash;
    std::optional<std::string> uri, userNotice, noticeOrganization, otherQualifierOid;
    bool noticeAsVisibleString = false;
};
Bytes SignaturePolicyIdValueDer(const PolicyIdPlan& plan);
// An X.501 Attribute: SEQUENCE { type, SET { values in the order given } }.
Bytes AttributeDer(const std::string& typeOid, const std::vector<Bytes>& values);
// The attribute with the SignaturePolicyId of `plan` as its one value.
Bytes SignaturePolicyIdAttributeDer(const PolicyIdPlan& plan);
// The attribute whose value is signaturePolicyImplied (NULL).
Bytes SignaturePolicyImpliedAttributeDer();

}  // namespace tessera_test
