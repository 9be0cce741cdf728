// tessera policy FILE [--json]
//
// Decodes a signature policy (DER) and prints what the library reads from
// it: identifier, date of issue, issuer, field of application, the stored
// hash and which convention it matches, the signing period, and the common
// and commitment rules with their signer and verifier rules, trust
// conditions, revocation requirements, algorithm constraints and
// extensions. Human-readable by default; --json prints one object for
// scripts. Both forms are rendered from one tree, so they cannot drift apart.
#include <openssl/objects.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "Cli.h"
#include "CryptException.h"
#include "SignaturePolicy.h"

namespace tessera_cli {

namespace {

using namespace TesseraLib;

// One entry of the report. A text value is "(none)" in text and null in
// JSON when empty; a raw value has its own JSON form (a number, true, null).
// An object's value is the one-line summary of its text form; members
// marked jsonOnly repeat what that summary says. A list's elements carry
// no key: the text form labels each with `item`, numbered when asked.
struct Node {
    enum Kind { kText, kRaw, kObject, kList };
    Kind kind = kText;
    std::string key;
    std::string value;
    std::string json;
    std::string item;
    bool numbered = false;
    bool jsonOnly = false;
    std::vector<Node> children;

    Node& Add(Node child) {
        children.push_back(std::move(child));
        return children.back();
    }
};

Node Text(const std::string& key, const std::string& value) {
    Node node;
    node.key = key;
    node.value = value;
    return node;
}

Node Raw(const std::string& key, const std::string& text, const std::string& json) {
    Node node = Text(key, text);
    node.kind = Node::kRaw;
    node.json = json;
    return node;
}

Node Number(const std::string& key, const unsigned long* value) {
    const std::string text = value != nullptr ? std::to_string(*value) : std::string();
    return Raw(key, text, text.empty() ? "null" : text);
}

Node Object(const std::string& key, const std::string& summary = std::string()) {
    Node node = Text(key, summary);
    node.kind = Node::kObject;
    return node;
}

Node List(const std::string& key, const std::string& item, bool numbered = false) {
    Node node = Text(key, std::string());
    node.kind = Node::kList;
    node.item = item;
    node.numbered = numbered;
    return node;
}

Node JsonOnly(Node node) {
    node.jsonOnly = true;
    return node;
}

// ---- rendering -------------------------------------------------------------

void RenderText(const Node& node, int indent, const std::string& label) {
    const std::string head = std::string(indent, ' ') + label + ":";
    const auto line = [&](const std::string& value) {
        std::printf("%-25s %s\n", head.c_str(), value.c_str());
    };
    switch (node.kind) {
        case Node::kText:
        case Node::kRaw:
            line(node.value.empty() ? "(none)" : node.value);
            break;
        case Node::kObject:
            if (node.value.empty()) {
                std::printf("%s\n", head.c_str());
            } else {
                line(node.value);
            }
            for (const Node& child : node.children) {
                if (!child.jsonOnly) {
                    RenderText(child, indent + 2, child.key);
                }
            }
            break;
        case Node::kList:
            if (node.children.empty()) {
                std::printf("%-25s (none)\n", (std::string(indent, ' ') + node.item + ":").c_str());
            }
            for (std::size_t i = 0; i < node.children.size(); ++i) {
                RenderText(node.children[i], indent,
                           node.numbered ? node.item + " " + std::to_string(i + 1) : node.item);
            }
            break;
    }
}

void RenderJson(const Node& node, int indent, bool keyed) {
    const std::string margin(indent, ' ');
    std::printf("%s", margin.c_str());
    if (keyed) {
        std::printf("%s: ", JsonString(node.key).c_str());
    }
    if (node.kind == Node::kText) {
        std::printf("%s", node.value.empty() ? "null" : JsonString(node.value).c_str());
        return;
    }
    if (node.kind == Node::kRaw) {
        std::printf("%s", node.json.c_str());
        return;
    }
    const bool object = node.kind == Node::kObject;
    if (node.children.empty()) {
        std::printf("%s", object ? "{}" : "[]");
        return;
    }
    std::printf("%s\n", object ? "{" : "[");
    for (std::size_t i = 0; i < node.children.size(); ++i) {
        RenderJson(node.children[i], indent + 2, object);
        std::printf("%s\n", i + 1 < node.children.size() ? "," : "");
    }
    std::printf("%s%s", margin.c_str(), object ? "}" : "]");
}

// ---- the parts of a policy -------------------------------------------------

std::string Wide(const qorstd::QorStringW& text) {
    return Narrow(text.c_str());
}

// A dotted OID; the summary adds OpenSSL's short name when it has one.
Node Oid(const std::string& key, const std::string& dotted) {
    const int nid = OBJ_txt2nid(dotted.c_str());
    const char* name = nid != NID_undef ? OBJ_nid2sn(nid) : nullptr;
    Node node = Object(key, name != nullptr ? dotted + " (" + name + ")" : dotted);
    node.Add(JsonOnly(Text("oid", dotted)));
    node.Add(JsonOnly(Text("name", name != nullptr ? name : "")));
    return node;
}

Node OidList(const std::string& key, const std::string& item,
             const qorstd::QorVector<qorstd::QorString>& oids) {
    Node list = List(key, item);
    for (unsigned int i = 0; i < oids.GetSize(); ++i) {
        list.Add(Oid("", oids[i].c_str()));
    }
    return list;
}

void AddExtensions(Node& parent, const SignaturePolicyExtensions& extensions,
                   const std::string& key = "extensions") {
    if (extensions.GetSize() == 0) {
        return;
    }
    Node& list = parent.Add(List(key, "extension"));
    for (unsigned int i = 0; i < extensions.GetSize(); ++i) {
        const std::string oid = extensions[i].oid.c_str();
        const std::string size = std::to_string(extensions[i].value.GetSize());
        Node& extension = list.Add(Object("", oid + " (" + size + " bytes)"));
        extension.Add(JsonOnly(Text("oid", oid)));
        extension.Add(JsonOnly(Raw("size", size, size)));
    }
}

// The name of an enumerated value, "unknown (N)" outside `names`.
template <std::size_t N>
std::string EnumName(int value, const char* const (&names)[N], int first = 0) {
    const int index = value - first;
    return index >= 0 && index < static_cast<int>(N) ? names[index]
                                                     : "unknown (" + std::to_string(value) + ")";
}

Node Revocation(const std::string& key, const RevReq& requirement) {
    static const char* const kNames[] = {"clrCheck",    "ocspCheck", "bothCheck",
                                         "eitherCheck", "noCheck",   "other"};
    const std::string check = EnumName(requirement.GetRevocationRequirements(), kNames);
    Node node = Object(key, check);
    node.Add(JsonOnly(Text("check", check)));
    AddExtensions(node, requirement.GetSignaturePolicyExtensions());
    return node;
}

std::string Delta(const DeltaTime& delta) {
    return std::to_string(delta.deltaDays) + "d " + std::to_string(delta.deltaHours) + "h " +
           std::to_string(delta.deltaMinutes) + "m " + std::to_string(delta.deltaSeconds) + "s";
}

Node TrustPoint(const CertificateTrustPoint& point) {
    Node node = Object("");
    node.Add(Text("subject", Wide(point.GetTrustPoint().GetSubjectStringX500(0))));
    node.Add(Text("serial", point.GetTrustPoint().GetSerialNumberStringHex().c_str()));
    if (point.GetPathLenConstraint() != nullptr) {
        node.Add(Number("pathLenConstraint", point.GetPathLenConstraint()));
    }
    if (point.GetAcceptablePolicySet().GetSize() != 0) {
        node.Add(OidList("acceptablePolicies", "acceptablePolicy", point.GetAcceptablePolicySet()));
    }
    if (point.GetRequireExplicitPolicy() != nullptr) {
        node.Add(Number("requireExplicitPolicy", point.GetRequireExplicitPolicy()));
    }
    if (point.GetInhibitPolicyMapping() != nullptr) {
        node.Add(Number("inhibitPolicyMapping", point.GetInhibitPolicyMapping()));
    }
    return node;
}

// Signing-certificate and time-stamp trust conditions; `stamp` is the
// latter, for its delays.
Node Trust(const std::string& key, const TrustCondition& condition,
           const TimeStampTrustCondition* stamp) {
    Node node = Object(key);
    Node& points = node.Add(List("trustPoints", "trustPoint", true));
    for (unsigned int i = 0; i < condition.GetTrustTrees().GetSize(); ++i) {
        points.Add(TrustPoint(condition.GetTrustTrees()[i]));
    }
    if (condition.GetRevocationRequirements() != nullptr) {
        const CertRevReq& requirements = *condition.GetRevocationRequirements();
        node.Add(Revocation("endCertRevocation", requirements.GetEndCertRevocationRequirements()));
        node.Add(Revocation("caCertRevocation", requirements.GetCACertstRevocationRequirements()));
    }
    if (stamp != nullptr && stamp->GetCautionPeriod() != nullptr) {
        node.Add(Text("cautionPeriod", Delta(*stamp->GetCautionPeriod())));
    }
    if (stamp != nullptr && stamp->GetSignatureTimestampDelay() != nullptr) {
        node.Add(Text("signatureTimestampDelay", Delta(*stamp->GetSignatureTimestampDelay())));
    }
    return node;
}

Node Algorithms(const AlgorithmConstraintSet& set) {
    const std::pair<const char*, const qorstd::QorVector<AlgAndLength>*> kLists[] = {
        {"signer", &set.GetSignerAlgorithmConstraints()},
        {"endEntityCerts", &set.GetEndEntityCertsAlgorithmConstraints()},
        {"caCerts", &set.GetCACertsAlgorithmConstraints()},
        {"attributeAuthorityCerts", &set.GetAttributeAuthorityCertsAlgorithmConstraints()},
        {"tsaCerts", &set.GetTSACertsAlgorithmConstraints()}};
    Node node = Object("algorithmConstraints");
    for (const auto& entry : kLists) {
        Node& list = node.Add(List(entry.first, entry.first));
        for (unsigned int i = 0; i < entry.second->GetSize(); ++i) {
            const AlgAndLength& algorithm = (*entry.second)[i];
            Node& item = list.Add(Oid("", algorithm.GetOID().c_str()));
            item.Add(JsonOnly(Number("minKeyLength", algorithm.GetMinKeyLength())));
            if (algorithm.GetMinKeyLength() != nullptr) {
                item.value += ", minKeyLength " + std::to_string(*algorithm.GetMinKeyLength());
            }
            AddExtensions(item, algorithm.GetSignaturePolicyExtensions());
        }
    }
    return node;
}

Node Signer(const SignerRules& rules) {
    static const char* const kReferences[] = {"signerOnly", "fullPath"};
    static const char* const kInfos[] = {"none", "signerOnly", "fullPath"};
    Node node = Object("signerRules");
    const int* external = rules.GetExternalSignedData();
    node.Add(external == nullptr ? Raw("externalSignedData", "unspecified", "null")
             : *external != 0    ? Raw("externalSignedData", "yes", "true")
                                 : Raw("externalSignedData", "no", "false"));
    node.Add(
        OidList("mandatedSignedAttributes", "signedAttr", rules.GetMandatedSignedAttributes()));
    node.Add(OidList("mandatedUnsignedAttributes", "unsignedAttr",
                     rules.GetMandatedUnsignedAttributes()));
    node.Add(Text("mandatedCertificateRef",
                  EnumName(rules.GetMandatedCertificateReference(), kReferences, 1)));
    node.Add(Text("mandatedCertificateInfo", EnumName(rules.GetMandatedCertificateInfo(), kInfos)));
    AddExtensions(node, rules.GetSignaturePolicyExtensions());
    return node;
}

// What common rules and commitment rules share.
void AddRules(Node& node, const CommonRules& rules) {
    if (rules.GetSignerRules() != nullptr) {
        node.Add(Signer(*rules.GetSignerRules()));
    }
    if (rules.GetVerifierRules() != nullptr) {
        Node& verifier = node.Add(Object("verifierRules"));
        verifier.Add(OidList("mandatedUnsignedAttributes", "unsignedAttr",
                             rules.GetVerifierRules()->GetMandatedUnsignedAttributes()));
        AddExtensions(verifier, rules.GetVerifierRules()->GetSignaturePolicyExtensions());
    }
    if (rules.GetSigningCertTrustCondition() != nullptr) {
        node.Add(Trust("signingCertTrust", *rules.GetSigningCertTrustCondition(), nullptr));
    }
    if (rules.GetTimeStampTrustCondition() != nullptr) {
        node.Add(Trust("timeStampTrust", *rules.GetTimeStampTrustCondition(),
                       rules.GetTimeStampTrustCondition()));
    }
    if (rules.GetAlgorithmConstraintSet() != nullptr) {
        node.Add(Algorithms(*rules.GetAlgorithmConstraintSet()));
    }
    AddExtensions(node, rules.GetSignaturePolicyExtensions());
}

Node CommitmentTypeNode(const SelectedCommitmentType& selected) {
    if (selected.IsEmpty() != 0) {
        Node node = Object("", "empty");
        node.Add(JsonOnly(Raw("empty", "yes", "true")));
        return node;
    }
    const CommitmentType& type = selected.GetCommitmentType();
    Node node = Oid("", type.GetOID().c_str());
    if (!type.GetFieldOfApplication().empty()) {
        node.Add(Text("fieldOfApplication", Wide(type.GetFieldOfApplication())));
    }
    if (!type.GetSemantics().empty()) {
        node.Add(Text("semantics", Wide(type.GetSemantics())));
    }
    return node;
}

// The digest of the document under `convention`, empty when it cannot be
// made (a digest OpenSSL lacks, fields not in definite-length form): the
// report goes on without it.
std::string Digest(const SignaturePolicy& policy, SignaturePolicy::cptHashConvention convention) {
    try {
        const qorstd::QorArray<unsigned char> digest =
            policy.ComputeHash(policy.GetHashAlgorithmNID(), convention);
        return Hex(digest.GetData(), digest.GetSize());
    } catch (const CryptException&) {
        return std::string();
    }
}

Node Describe(const SignaturePolicy& policy) {
    Node root = Object("");
    root.Add(Text("oid", policy.GetOID().c_str()));
    root.Add(Text("dateOfIssue", FormatUtc(policy.GetDateOfIssue())));
    root.Add(Text("issuer", Wide(policy.GetIssuerName().GetStringX500())));
    root.Add(Text("issuerUri", policy.GetURI().c_str()));
    root.Add(Text("fieldOfApplication", Wide(policy.GetFieldOfApplication())));
    const std::string name = policy.GetHashAlgorithmName().c_str();
    const std::string oid = policy.GetHashAlgorithmOID().c_str();
    Node& algorithm = root.Add(Object("hashAlgorithm", name + " (" + oid + ")"));
    algorithm.Add(JsonOnly(Text("name", name)));
    algorithm.Add(JsonOnly(Text("oid", oid)));
    root.Add(Text("hash", policy.GetHashValueHex().c_str()));
    static const char* const kConventions[] = {"none", "fields", "whole file"};
    root.Add(Text("hashCheck", policy.GetHashValue().GetSize() == 0
                                   ? "absent"
                                   : EnumName(policy.CheckHash(), kConventions)));
    root.Add(Text("fieldsDigest", Digest(policy, SignaturePolicy::cptHashMatchFields)));
    root.Add(Text("wholeFileDigest", Digest(policy, SignaturePolicy::cptHashMatchWholeFile)));

    const SignatureValidationPolicy& validation = policy.GetSignatureValidationPolicy();
    Node& period = root.Add(Object("signingPeriod"));
    period.Add(Text("notBefore", FormatUtc(validation.GetNotBefore())));
    period.Add(validation.GetNotAfter() == 0
                   ? Raw("notAfter", "open", "null")
                   : Text("notAfter", FormatUtc(validation.GetNotAfter())));
    AddRules(root.Add(Object("commonRules")), validation.GetCommonRules());
    Node& commitments = root.Add(List("commitmentRules", "commitmentRule", true));
    for (unsigned int i = 0; i < validation.GetCommitmentRules().GetSize(); ++i) {
        const CommitmentRule& rule = validation.GetCommitmentRules()[i];
        Node& node = commitments.Add(Object(""));
        Node& types = node.Add(List("commitmentTypes", "commitmentType"));
        for (unsigned int t = 0; t < rule.GetSelectedCommitmentTypes().GetSize(); ++t) {
            types.Add(CommitmentTypeNode(rule.GetSelectedCommitmentTypes()[t]));
        }
        AddRules(node, rule);
    }
    AddExtensions(root, validation.GetSignaturePolicyExtensions(), "validationPolicyExtensions");
    AddExtensions(root, policy.GetSignaturePolicyExtensions());
    return root;
}

}  // namespace

int RunPolicy(const std::vector<std::string>& args) {
    std::vector<unsigned char> bytes;
    bool json = false;
    if (const int exitCode = ReadShownFile("policy", args, &bytes, &json); exitCode != 0) {
        return exitCode;
    }

    // Decoding errors reach main(), which prints code and description.
    const SignaturePolicy policy(
        qorstd::QorArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size())));
    const Node report = Describe(policy);
    if (json) {
        RenderJson(report, 0, false);
        std::printf("\n");
    } else {
        for (const Node& child : report.children) {
            RenderText(child, 0, child.key);
        }
    }
    return kExitOk;
}

}  // namespace tessera_cli
