#include "TestPolicy.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <utility>

namespace tessera_test {

namespace {

const char kSignaturePolicyIdOid[] = "1.2.840.113549.1.9.16.2.15";

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("test policy: " + what);
}

template <class T, class Encode>
std::vector<Bytes> Each(const std::vector<T>& items, Encode encode) {
    std::vector<Bytes> out;
    for (const T& item : items) {
        out.push_back(encode(item));
    }
    return out;
}

// Appends encode(*value) when the optional holds one.
template <class T, class Encode>
void AddIf(std::vector<Bytes>& fields, const std::optional<T>& value, Encode encode) {
    if (value) {
        fields.push_back(encode(*value));
    }
}

Bytes Text(unsigned char tag, const std::string& text) {
    return DerTlv(tag, Bytes(text.begin(), text.end()));
}

Bytes OidsDer(const std::vector<std::string>& oids) {
    return DerSequence(Each(oids, DerOid));
}

Bytes ExtensionsDer(const std::vector<PolicyExtension>& extensions) {
    return DerSequence(Each(extensions, [](const PolicyExtension& extension) {
        return DerSequence({DerOid(extension.oid), DerOctets(extension.value)});
    }));
}

Bytes AlgorithmDer(const std::string& oid, bool nullParams) {
    return nullParams ? DerSequence({DerOid(oid), DerNull()}) : DerSequence({DerOid(oid)});
}

Bytes Digest(const std::string& algorithmOid, const Bytes& data) {
    // The default provider knows its digests by their dotted OIDs too.
    std::unique_ptr<EVP_MD, void (*)(EVP_MD*)> md(
        EVP_MD_fetch(nullptr, algorithmOid.c_str(), nullptr), EVP_MD_free);
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!md || EVP_Digest(data.data(), data.size(), out, &length, md.get(), nullptr) != 1) {
        ERR_clear_error();  // the exception says it; later checks of the queue start clean
        Fail("no digest for " + algorithmOid);
    }
    return Bytes(out, out + length);
}

Bytes GeneralNameDer(const IssuerNamePlan& name) {
    switch (name.kind) {
        case IssuerNamePlan::Kind::Directory:
            return Explicit(4, name.directoryNameDer);
        case IssuerNamePlan::Kind::Uri:
            return Implicit(6, DerIa5(name.text));
        case IssuerNamePlan::Kind::Email:
            return Implicit(1, DerIa5(name.text));
        case IssuerNamePlan::Kind::Dns:
            return Implicit(2, DerIa5(name.text));
    }
    Fail("general name kind");
}

Bytes DirectoryStringDer(unsigned char tag, const std::string& text) {
    if (tag != 0x1E) {
        return Text(tag, text);
    }
    Bytes wide;
    for (const char c : text) {
        wide.push_back(0);
        wide.push_back(static_cast<unsigned char>(c));
    }
    return DerTlv(tag, wide);
}

Bytes NameConstraintsDer() {
    const Bytes permitted = DerSequence({Explicit(4, NameDer({{"O", "Tessera Test"}}))});
    const Bytes excluded = DerSequence({Implicit(2, DerIa5("excluded.test"))});
    return DerSequence(
        {Explicit(0, DerSequence({permitted})), Explicit(1, DerSequence({excluded}))});
}

Bytes RevReqDer(const RevReqPlan& plan) {
    std::vector<Bytes> fields{DerEnumerated(plan.enuRevReq)};
    AddIf(fields, plan.exRevReq, ExtensionsDer);
    return DerSequence(fields);
}

Bytes CertRevReqDer(const CertRevReqPlan& plan) {
    return DerSequence({RevReqDer(plan.endCert), Explicit(0, RevReqDer(plan.caCerts))});
}

Bytes TrustPointDer(const TrustPointPlan& plan) {
    std::vector<Bytes> fields{plan.certificateDer};
    AddIf(fields, plan.pathLenConstraint, [](long n) { return Implicit(0, DerInteger(n)); });
    AddIf(fields, plan.acceptablePolicySet, [](auto& oids) { return Explicit(1, OidsDer(oids)); });
    if (plan.nameConstraints) {
        fields.push_back(Explicit(2, NameConstraintsDer()));
    }
    if (plan.policyConstraints || plan.requireExplicitPolicy || plan.inhibitPolicyMapping) {
        std::vector<Bytes> constraints;
        AddIf(constraints, plan.requireExplicitPolicy,
              [](long n) { return Implicit(0, DerInteger(n)); });
        AddIf(constraints, plan.inhibitPolicyMapping,
              [](long n) { return Implicit(1, DerInteger(n)); });
        fields.push_back(Explicit(3, DerSequence(constraints)));
    }
    return DerSequence(fields);
}

Bytes TrustTreesDer(const std::vector<TrustPointPlan>& trustPoints) {
    return DerSequence(Each(trustPoints, TrustPointDer));
}

Bytes DeltaTimeDer(const DeltaTimePlan& plan) {
    return DerSequence({DerInteger(plan.seconds), DerInteger(plan.minutes), DerInteger(plan.hours),
                        DerInteger(plan.days)});
}

Bytes SignerAndVerifierRulesDer(const SignerRulesPlan& signer, const VerifierRulesPlan& verifier) {
    std::vector<Bytes> signerFields;
    AddIf(signerFields, signer.externalSignedData, DerBoolean);
    signerFields.push_back(OidsDer(signer.mandatedSignedAttr));
    signerFields.push_back(OidsDer(signer.mandatedUnsignedAttr));
    AddIf(signerFields, signer.mandatedCertificateRef,
          [](long n) { return Explicit(0, DerEnumerated(n)); });
    AddIf(signerFields, signer.mandatedCertificateInfo,
          [](long n) { return Explicit(1, DerEnumerated(n)); });
    AddIf(signerFields, signer.extensions, [](auto& e) { return Explicit(2, ExtensionsDer(e)); });
    std::vector<Bytes> verifierFields{OidsDer(verifier.mandatedUnsignedAttr)};
    AddIf(verifierFields, verifier.extensions, ExtensionsDer);
    return DerSequence({DerSequence(signerFields), DerSequence(verifierFields)});
}

Bytes TimeStampTrustDer(const TimeStampTrustPlan& plan) {
    std::vector<Bytes> fields;
    AddIf(fields, plan.trustTrees, [](auto& trees) { return Explicit(0, TrustTreesDer(trees)); });
    AddIf(fields, plan.revReq, [](auto& req) { return Explicit(1, CertRevReqDer(req)); });
    if (plan.nameConstraints) {
        fields.push_back(Explicit(2, NameConstraintsDer()));
    }
    AddIf(fields, plan.cautionPeriod, [](auto& delta) { return Explicit(3, DeltaTimeDer(delta)); });
    AddIf(fields, plan.signatureTimestampDelay,
          [](auto& delta) { return Explicit(4, DeltaTimeDer(delta)); });
    return DerSequence(fields);
}

Bytes AttributeTrustDer(const AttributeTrustPlan& plan) {
    std::vector<Bytes> fields{DerBoolean(plan.attributeMandated),
                              DerEnumerated(plan.howCertAttribute)};
    AddIf(fields, plan.trustTrees, [](auto& trees) { return Explicit(0, TrustTreesDer(trees)); });
    AddIf(fields, plan.revReq, [](auto& req) { return Explicit(1, CertRevReqDer(req)); });
    if (plan.withConstraints) {
        const Bytes value = plan.typeAndValueForm
                                ? DerSequence({DerOid("2.5.4.12"), DerUtf8("Signer")})
                                : AttributeDer("2.5.4.12", {DerUtf8("Signer")});
        fields.push_back(Explicit(2, DerSequence({Explicit(0, OidsDer({"2.5.4.12"})),
                                                  Explicit(1, DerSequence({value}))})));
    }
    return DerSequence(fields);
}

Bytes AlgAndLengthsDer(const std::vector<AlgAndLengthPlan>& list) {
    return DerSequence(Each(list, [](const AlgAndLengthPlan& plan) {
        std::vector<Bytes> fields{DerOid(plan.oid)};
        AddIf(fields, plan.minKeyLength, DerInteger);
        AddIf(fields, plan.other, ExtensionsDer);
        return DerSequence(fields);
    }));
}

Bytes AlgorithmConstraintsDer(const AlgorithmConstraintsPlan& plan) {
    std::vector<Bytes> fields;
    int n = 0;
    for (const auto* list :
         {&plan.signer, &plan.eeCert, &plan.caCert, &plan.aaCert, &plan.tsaCert}) {
        AddIf(fields, *list, [n](auto& items) { return Explicit(n, AlgAndLengthsDer(items)); });
        ++n;
    }
    return DerSequence(fields);
}

// The fields [0]..[5], without the enclosing SEQUENCE.
std::vector<Bytes> CommonRulesFields(const CommonRulesPlan& plan) {
    std::vector<Bytes> fields;
    if (plan.signerRules || plan.verifierRules) {
        fields.push_back(Explicit(
            0, SignerAndVerifierRulesDer(plan.signerRules.value_or(SignerRulesPlan()),
                                         plan.verifierRules.value_or(VerifierRulesPlan()))));
    }
    AddIf(fields, plan.signingCertTrust, [](const SigningCertTrustPlan& trust) {
        return Explicit(
            1, DerSequence({TrustTreesDer(trust.trustTrees), CertRevReqDer(trust.revReq)}));
    });
    AddIf(fields, plan.timeStampTrust, [](auto& t) { return Explicit(2, TimeStampTrustDer(t)); });
    AddIf(fields, plan.attributeTrust, [](auto& t) { return Explicit(3, AttributeTrustDer(t)); });
    AddIf(fields, plan.algorithmConstraints,
          [](auto& c) { return Explicit(4, AlgorithmConstraintsDer(c)); });
    AddIf(fields, plan.extensions, [](auto& e) { return Explicit(5, ExtensionsDer(e)); });
    return fields;
}

Bytes CommitmentRuleDer(const CommitmentRulePlan& plan) {
    std::vector<Bytes> fields{
        DerSequence(Each(plan.selCommitmentTypes, [](const SelectedCommitmentPlan& selected) {
            if (selected.empty) {
                return DerNull();
            }
            std::vector<Bytes> type{DerOid(selected.oid)};
            AddIf(type, selected.fieldOfApplication,
                  [](auto& text) { return Implicit(0, DerUtf8(text)); });
            AddIf(type, selected.semantics, [](auto& text) { return Implicit(1, DerUtf8(text)); });
            return DerSequence(type);
        }))};
    for (Bytes& field : CommonRulesFields(plan.rules)) {
        fields.push_back(std::move(field));
    }
    return DerSequence(fields);
}

Bytes SignPolicyInfoDer(const PolicyPlan& plan) {
    std::vector<Bytes> period{DerGeneralizedTime(plan.notBefore)};
    AddIf(period, plan.notAfter, DerGeneralizedTime);
    std::vector<Bytes> validation{DerSequence(period),
                                  DerSequence(CommonRulesFields(plan.commonRules)),
                                  DerSequence(Each(plan.commitmentRules, CommitmentRuleDer))};
    AddIf(validation, plan.validationPolicyExtensions, ExtensionsDer);
    std::vector<Bytes> info{DerOid(plan.policyOid), DerGeneralizedTime(plan.dateOfIssue),
                            DerSequence(Each(plan.issuer, GeneralNameDer)),
                            DirectoryStringDer(plan.fieldOfApplicationTag, plan.fieldOfApplication),
                            DerSequence(validation)};
    AddIf(info, plan.infoExtensions, ExtensionsDer);
    return DerSequence(info);
}

}  // namespace

Bytes DerTlv(unsigned char tag, const Bytes& content) {
    Bytes out{tag};
    const std::size_t n = content.size();
    if (n < 0x80) {
        out.push_back(static_cast<unsigned char>(n));
    } else {
        Bytes length;
        for (std::size_t rest = n; rest != 0; rest >>= 8) {
            length.insert(length.begin(), static_cast<unsigned char>(rest & 0xFF));
        }
        out.push_back(static_cast<unsigned char>(0x80 | length.size()));
        out.insert(out.end(), length.begin(), length.end());
    }
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

Bytes DerSequence(const std::vector<Bytes>& items) {
    return DerTlv(0x30, Join(items));
}

Bytes DerSet(const std::vector<Bytes>& items) {
    return DerTlv(0x31, Join(items));
}

Bytes DerOid(const std::string& dotted) {
    std::vector<unsigned long long> arcs;
    std::size_t start = 0;
    while (start <= dotted.size()) {
        const std::size_t dot = std::min(dotted.find('.', start), dotted.size());
        const std::string arc = dotted.substr(start, dot - start);
        if (arc.empty() || arc.size() > 18 || arc.find_first_not_of("0123456789") != arc.npos) {
            Fail("OID text '" + dotted + "'");
        }
        arcs.push_back(std::stoull(arc));
        start = dot + 1;
    }
    if (arcs.size() < 2 || arcs[0] > 2 || (arcs[0] < 2 && arcs[1] > 39)) {
        Fail("OID text '" + dotted + "'");
    }
    arcs[1] += arcs[0] * 40;  // the first two arcs share one subidentifier
    Bytes content;
    for (std::size_t i = 1; i < arcs.size(); ++i) {
        Bytes sub{static_cast<unsigned char>(arcs[i] & 0x7F)};
        for (unsigned long long rest = arcs[i] >> 7; rest != 0; rest >>= 7) {
            sub.insert(sub.begin(), static_cast<unsigned char>(0x80 | (rest & 0x7F)));
        }
        content.insert(content.end(), sub.begin(), sub.end());
    }
    return DerTlv(0x06, content);
}

Bytes DerInteger(long value) {
    Bytes content;
    for (int shift = 56; shift >= 0; shift -= 8) {
        content.push_back(static_cast<unsigned char>(static_cast<unsigned long>(value) >> shift));
    }
    // Drop leading octets that only repeat the sign of the next one.
    while (content.size() > 1 && ((content[0] == 0x00 && (content[1] & 0x80) == 0) ||
                                  (content[0] == 0xFF && (content[1] & 0x80) != 0))) {
        content.erase(content.begin());
    }
    return DerTlv(0x02, content);
}

Bytes DerEnumerated(long value) {
    Bytes out = DerInteger(value);
    out[0] = 0x0A;  // the content follows the rules of INTEGER
    return out;
}

Bytes DerBoolean(bool value) {
    return DerTlv(0x01, {static_cast<unsigned char>(value ? 0xFF : 0x00)});
}

Bytes DerUtf8(const std::string& text) {
    return Text(0x0C, text);
}

Bytes DerIa5(const std::string& text) {
    return Text(0x16, text);
}

Bytes DerOctets(const Bytes& octets) {
    return DerTlv(0x04, octets);
}

Bytes DerNull() {
    return DerTlv(0x05, {});
}

Bytes DerGeneralizedTime(std::int64_t secondsSince1970) {
    const std::time_t time = static_cast<std::time_t>(secondsSince1970);
    std::tm tm{};
    char text[32];
    if (gmtime_r(&time, &tm) == nullptr ||
        std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02dZ", tm.tm_year + 1900,
                      tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec) != 15) {
        Fail("GeneralizedTime of " + std::to_string(secondsSince1970));
    }
    return Text(0x18, text);
}

Bytes Explicit(int n, const Bytes& inner) {
    return DerTlv(static_cast<unsigned char>(0xA0 | n), inner);
}

Bytes Implicit(int n, const Bytes& inner) {
    if (inner.empty() || n < 0 || n > 30) {
        Fail("implicit tag [" + std::to_string(n) + "]");
    }
    Bytes out = inner;
    out[0] = static_cast<unsigned char>(0x80 | (inner[0] & 0x20) | n);
    return out;
}

Bytes NameDer(const std::vector<NameAttribute>& attributes) {
    NamePtr name = BuildName(attributes);
    unsigned char* der = nullptr;
    const int length = name ? i2d_X509_NAME(name.get(), &der) : 0;
    if (length <= 0) {
        Fail("DER of a name");
    }
    Bytes out(der, der + length);
    OPENSSL_free(der);
    return out;
}

std::vector<IssuerNamePlan> DefaultPolicyIssuer() {
    return {{IssuerNamePlan::Kind::Directory,
             NameDer({{"O", "Tessera Test"}, {"CN", "Policy Authority"}}),
             {}},
            {IssuerNamePlan::Kind::Uri, {}, "http://policy.tessera.test/policy.der"}};
}

Bytes PolicyFieldsHash(const PolicyPlan& plan) {
    return Digest(plan.hashAlgorithmOid,
                  Join({AlgorithmDer(plan.hashAlgorithmOid, plan.hashAlgorithmNullParams),
                        SignPolicyInfoDer(plan)}));
}

Bytes PolicyDer(const PolicyPlan& plan) {
    std::vector<Bytes> fields{AlgorithmDer(plan.hashAlgorithmOid, plan.hashAlgorithmNullParams),
                              SignPolicyInfoDer(plan)};
    if (plan.hash == PolicyHash::Fields) {
        fields.push_back(DerOctets(Digest(plan.hashAlgorithmOid, Join(fields))));
    } else if (plan.hash == PolicyHash::Given) {
        fields.push_back(DerOctets(plan.givenHash));
    }
    return DerSequence(fields);
}

PolicyPlan FullPolicyPlan(const Bytes& trustPointCertDer) {
    const std::vector<PolicyExtension> extensions{{"1.3.6.1.4.1.99999.2.1", {0x05, 0x00}}};
    TrustPointPlan trustPoint;
    trustPoint.certificateDer = trustPointCertDer;
    trustPoint.pathLenConstraint = 2;
    trustPoint.acceptablePolicySet = std::vector<std::string>{"2.5.29.32.0"};
    trustPoint.nameConstraints = true;
    trustPoint.requireExplicitPolicy = 0;
    trustPoint.inhibitPolicyMapping = 1;
    const CertRevReqPlan revReq{{1, extensions}, {0, extensions}};
    const AlgorithmConstraintsPlan algorithms{
        std::vector<AlgAndLengthPlan>{{"1.2.840.113549.1.1.11", 2048, extensions},
                                      {"1.2.840.10045.4.3.2", 256, std::nullopt}},
        std::vector<AlgAndLengthPlan>{{"1.2.840.113549.1.1.1", 2048, std::nullopt}},
        std::vector<AlgAndLengthPlan>{{"1.2.840.113549.1.1.1", 4096, std::nullopt}},
        std::vector<AlgAndLengthPlan>{{"1.2.840.10045.2.1", std::nullopt, std::nullopt}},
        std::vector<AlgAndLengthPlan>{{"1.2.840.113549.1.1.1", 2048, std::nullopt}}};
    CommonRulesPlan rules;
    rules.signerRules = SignerRulesPlan{
        true,
        {"1.2.840.113549.1.9.3", "1.2.840.113549.1.9.4", "1.2.840.113549.1.9.16.2.47"},
        {"1.2.840.113549.1.9.16.2.14"},
        2,
        1,
        extensions};
    rules.verifierRules = VerifierRulesPlan{{"1.2.840.113549.1.9.16.2.21"}, extensions};
    rules.signingCertTrust = SigningCertTrustPlan{{trustPoint}, revReq};
    rules.timeStampTrust = TimeStampTrustPlan{std::vector<TrustPointPlan>{trustPoint}, revReq, true,
                                              DeltaTimePlan{0, 0, 0, 1}, DeltaTimePlan{0, 0, 1, 0}};
    rules.attributeTrust =
        AttributeTrustPlan{true, 1, std::vector<TrustPointPlan>{trustPoint}, revReq, true, false};
    rules.algorithmConstraints = algorithms;
    rules.extensions = extensions;

    PolicyPlan plan;
    plan.notAfter = UtcTime(2033, 3, 1);
    plan.commonRules = rules;
    plan.commitmentRules = {
        {{{false, "1.2.840.113549.1.9.16.6.1", "Tessera test contracts", "Proof of origin"},
          {true, {}, std::nullopt, std::nullopt}},
         rules},
        {{{true, {}, std::nullopt, std::nullopt}}, {}}};
    plan.infoExtensions = extensions;
    plan.validationPolicyExtensions = extensions;
    return plan;
}

Bytes SignaturePolicyIdValueDer(const PolicyIdPlan& plan) {
    const unsigned char textTag = plan.noticeAsVisibleString ? 0x1A : 0x0C;
    std::vector<Bytes> qualifiers;
    AddIf(qualifiers, plan.uri, [](auto& uri) {
        return DerSequence({DerOid("1.2.840.113549.1.9.16.5.1"), DerIa5(uri)});
    });
    if (plan.userNotice || plan.noticeOrganization) {
        std::vector<Bytes> notice;
        AddIf(notice, plan.noticeOrganization, [textTag](auto& organization) {
            return DerSequence({Text(textTag, organization), DerSequence({DerInteger(1)})});
        });
        AddIf(notice, plan.userNotice, [textTag](auto& text) { return Text(textTag, text); });
        qualifiers.push_back(
            DerSequence({DerOid("1.2.840.113549.1.9.16.5.2"), DerSequence(notice)}));
    }
    AddIf(qualifiers, plan.otherQualifierOid, [](auto& oid) {
        return DerSequence({DerOid(oid), DerUtf8("other qualifier")});
    });
    std::vector<Bytes> fields{
        DerOid(plan.policyOid),
        DerSequence({AlgorithmDer(plan.hashAlgorithmOid, plan.hashAlgorithmNullParams),
                     DerOctets(plan.hash)})};
    if (!qualifiers.empty()) {
        fields.push_back(DerSequence(qualifiers));
    }
    return DerSequence(fields);
}

Bytes AttributeDer(const std::string& typeOid, const std::vector<Bytes>& values) {
    return DerSequence({DerOid(typeOid), DerSet(values)});
}

Bytes SignaturePolicyIdAttributeDer(const PolicyIdPlan& plan) {
    return AttributeDer(kSignaturePolicyIdOid, {SignaturePolicyIdValueDer(plan)});
}

Bytes SignaturePolicyImpliedAttributeDer() {
    return AttributeDer(kSignaturePolicyIdOid, {DerNull()});
}

}  // namespace tessera_test
