// The signature-policy-identifier attribute: built from a policy, compared
// octet for octet with one written by hand, decoded with every kind of
// qualifier, and refused when it is something else.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>

#include "SignaturePolicy.h"
#include "SignaturePolicyAttribute.h"
#include "TestPolicy.h"
#include "TestTessera.h"
#include "policy/att_sigpolicyid.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const char kSha256[] = "2.16.840.1.101.3.4.2.1";

Bytes ToBytes(const qorstd::QorArray<unsigned char>& array) {
    return Bytes(array.GetData(), array.GetData() + array.GetSize());
}

Bytes ValueOf(const SignaturePolicyAttribute& attribute) {
    return ToBytes(attribute.GetValue());
}

}  // namespace

TEST(SignaturePolicyAttributeTest, BuiltFromAPolicyAsWrittenByHand) {
    PolicyPlan plan;
    plan.fieldOfApplication = "Tessera test signatures";
    const SignaturePolicy policy(Array(PolicyDer(plan)));
    const SignaturePolicyAttribute built(policy);
    EXPECT_EQ(built.GetOID(), "1.2.840.113549.1.9.16.2.15");
    EXPECT_EQ(built.IsSigned(), 1);
    EXPECT_EQ(built.GetPolicyOID(), "") << "fields stay empty until decoded";

    PolicyIdPlan expected;
    expected.policyOid = plan.policyOid;
    expected.hashAlgorithmNullParams = false;  // OpenSSL leaves SHA-2 parameters out
    expected.hash = PolicyFieldsHash(plan);    // the stored hash, not a new digest
    expected.uri = "http://policy.tessera.test/policy.der";
    expected.userNotice = "Tessera test signatures";
    EXPECT_EQ(ValueOf(built), SignaturePolicyIdValueDer(expected))
        << "SPuri then SPUserNotice with the field of application as explicit text";

    SignaturePolicyAttribute decoded;
    decoded.Decode(built.Encode());
    EXPECT_EQ(decoded.GetPolicyOID(), plan.policyOid.c_str());
    EXPECT_EQ(decoded.GetHashAlgorithmNID(), NID_sha256);
    EXPECT_TRUE(decoded.GetHashValue() == policy.GetHashValue());
    ASSERT_EQ(decoded.GetQualifiers().GetSize(), 2u);
    EXPECT_EQ(decoded.GetQualifiers()[0].GetType(), SignaturePolicyQualifier::qualifierSpUri);
    EXPECT_EQ(decoded.GetQualifiers()[0].GetURI(), "http://policy.tessera.test/policy.der");
    EXPECT_EQ(decoded.GetQualifiers()[1].GetType(),
              SignaturePolicyQualifier::qualifierSpUserNotice);
    EXPECT_EQ(decoded.GetQualifiers()[1].GetExplicitText(), L"Tessera test signatures");
    EXPECT_EQ(decoded.GetQualifiers()[1].GetOrganization(), L"") << "no notice reference";

    // Without URI and field of application there are no qualifiers.
    plan.issuer = {{IssuerNamePlan::Kind::Directory, NameDer({{"CN", "Authority"}}), {}}};
    plan.fieldOfApplication = "";
    expected.uri.reset();
    expected.userNotice.reset();
    expected.hash = PolicyFieldsHash(plan);
    EXPECT_EQ(ValueOf(SignaturePolicyAttribute(SignaturePolicy(Array(PolicyDer(plan))))),
              SignaturePolicyIdValueDer(expected))
        << "no sigPolicyQualifiers";

    plan.hash = PolicyHash::Absent;
    const Thrown noHash =
        Catch([&] { SignaturePolicyAttribute attribute(SignaturePolicy(Array(PolicyDer(plan)))); });
    EXPECT_EQ(noHash.code, ErrInvalidParameter);
    EXPECT_EQ(noHash.message, "CreateSignaturePolicy - aHashValue is empty");
}

TEST(SignaturePolicyAttributeTest, DecodesEveryKindOfQualifier) {
    PolicyIdPlan plan;
    plan.hash = Bytes(32, 0x5A);
    plan.uri = "http://spuri.test";
    plan.userNotice = "Read the policy";
    plan.noticeOrganization = "Tessera Test";
    plan.noticeAsVisibleString = true;
    plan.otherQualifierOid = "1.3.6.1.4.1.99999.3.1";
    SignaturePolicyAttribute attribute;
    attribute.Decode(Array(SignaturePolicyIdAttributeDer(plan)));
    const SignaturePolicyAttribute copy = attribute;
    const qorstd::QorVector<SignaturePolicyQualifier>& qualifiers = copy.GetQualifiers();
    ASSERT_EQ(qualifiers.GetSize(), 3u);
    EXPECT_EQ(qualifiers[1].GetOrganization(), L"Tessera Test") << "noticeRef organization";
    EXPECT_EQ(qualifiers[1].GetExplicitText(), L"Read the policy") << "VisibleString text";
    EXPECT_EQ(qualifiers[2].GetType(), SignaturePolicyQualifier::qualifierOther);
    EXPECT_EQ(qualifiers[2].GetQualifierOID(), "1.3.6.1.4.1.99999.3.1");
    EXPECT_EQ(copy.GetHashValue().GetSize(), 32u);
}

TEST(SignaturePolicyAttributeTest, RefusesWhatIsNoPolicyIdentifier) {
    SignaturePolicyAttribute attribute;
    const Thrown empty = Catch([&] { attribute.Decode(qorstd::QorArray<unsigned char>()); });
    EXPECT_EQ(empty.code, ErrInvalidParameter);
    EXPECT_EQ(empty.message, "SignaturePolicyAttribute - attr is empty");

    const Bytes signingTime = AttributeDer(
        "1.2.840.113549.1.9.5",
        {DerTlv(0x17, Bytes{'2', '4', '0', '1', '0', '1', '0', '0', '0', '0', '0', '0', 'Z'})});
    EXPECT_EQ(CodeOf([&] { attribute.Decode(Array(signingTime)); }), ErrAsn1Decoding)
        << "an attribute of another type";
    EXPECT_EQ(attribute.GetOID(), "1.2.840.113549.1.9.5") << "a failed decode keeps the attribute";
    EXPECT_EQ(attribute.GetPolicyOID(), "");

    EXPECT_EQ(CodeOf([&] { attribute.Decode(Array(SignaturePolicyImpliedAttributeDer())); }),
              ErrAsn1Decoding)
        << "an implied policy";
    EXPECT_EQ(CodeOf([&] {
                  attribute.Decode(Array(
                      AttributeDer("1.2.840.113549.1.9.16.2.15", {DerSequence({DerInteger(1)})})));
              }),
              ErrAsn1Decoding)
        << "a SEQUENCE that is no SignaturePolicyId";
    EXPECT_EQ(CodeOf([&] {
                  attribute.Decode(Array(Bytes{0x30, 0x03, 0x06}));
              }),
              ErrAsn1Decoding)
        << "no attribute at all";

    EXPECT_EQ(QOR_Attr_SignaturePolicyIdentifier_Create(nullptr, EVP_sha256(), Bytes(32).data(),
                                                        nullptr, nullptr),
              nullptr)
        << "no policy OID";
    EXPECT_EQ(QOR_Attr_SignaturePolicyIdentifier_Create("1.2.3", nullptr, Bytes(32).data(), nullptr,
                                                        nullptr),
              nullptr)
        << "no digest";
}
