#include "policy/att_sigpolicyid.h"

#include <openssl/err.h>
#include <openssl/objects.h>

#include <cstring>

// clang-format off
ASN1_SEQUENCE(ESI_OTHER_HASH_ALG_AND_VALUE) = {
    ASN1_SIMPLE(ESI_OTHER_HASH_ALG_AND_VALUE, hashAlgorithm, X509_ALGOR),
    ASN1_SIMPLE(ESI_OTHER_HASH_ALG_AND_VALUE, hashValue, ASN1_OCTET_STRING),
} ASN1_SEQUENCE_END(ESI_OTHER_HASH_ALG_AND_VALUE)
IMPLEMENT_ASN1_FUNCTIONS(ESI_OTHER_HASH_ALG_AND_VALUE)

ASN1_ADB_TEMPLATE(sigqualifier_other) =
    ASN1_SIMPLE(ESI_SIG_POLICY_QUALIFIER_INFO, sigQualifier.other, ASN1_ANY);

ASN1_ADB(ESI_SIG_POLICY_QUALIFIER_INFO) = {
    ADB_ENTRY(NID_id_smime_spq_ets_sqt_uri,
              ASN1_SIMPLE(ESI_SIG_POLICY_QUALIFIER_INFO, sigQualifier.spUri, ASN1_IA5STRING)),
    ADB_ENTRY(NID_id_smime_spq_ets_sqt_unotice,
              ASN1_SIMPLE(ESI_SIG_POLICY_QUALIFIER_INFO, sigQualifier.spUserNotice, USERNOTICE)),
} ASN1_ADB_END(ESI_SIG_POLICY_QUALIFIER_INFO, 0, sigPolicyQualifierId, 0, &sigqualifier_other_tt, NULL);

ASN1_SEQUENCE(ESI_SIG_POLICY_QUALIFIER_INFO) = {
    ASN1_SIMPLE(ESI_SIG_POLICY_QUALIFIER_INFO, sigPolicyQualifierId, ASN1_OBJECT),
    ASN1_ADB_OBJECT(ESI_SIG_POLICY_QUALIFIER_INFO),
} ASN1_SEQUENCE_END(ESI_SIG_POLICY_QUALIFIER_INFO)
IMPLEMENT_ASN1_FUNCTIONS(ESI_SIG_POLICY_QUALIFIER_INFO)

ASN1_SEQUENCE(ESI_SIGNATURE_POLICY_ID) = {
    ASN1_SIMPLE(ESI_SIGNATURE_POLICY_ID, sigPolicyId, ASN1_OBJECT),
    ASN1_SIMPLE(ESI_SIGNATURE_POLICY_ID, sigPolicyHash, ESI_OTHER_HASH_ALG_AND_VALUE),
    ASN1_SEQUENCE_OF_OPT(ESI_SIGNATURE_POLICY_ID, sigPolicyQualifiers, ESI_SIG_POLICY_QUALIFIER_INFO),
} ASN1_SEQUENCE_END(ESI_SIGNATURE_POLICY_ID)
IMPLEMENT_ASN1_FUNCTIONS(ESI_SIGNATURE_POLICY_ID)

ASN1_CHOICE(ESI_SIGNATURE_POLICY_IDENTIFIER) = {
    ASN1_SIMPLE(ESI_SIGNATURE_POLICY_IDENTIFIER, value.signaturePolicyId, ESI_SIGNATURE_POLICY_ID),
    ASN1_SIMPLE(ESI_SIGNATURE_POLICY_IDENTIFIER, value.signaturePolicyImplied, ASN1_NULL),
} ASN1_CHOICE_END(ESI_SIGNATURE_POLICY_IDENTIFIER)
IMPLEMENT_ASN1_FUNCTIONS(ESI_SIGNATURE_POLICY_IDENTIFIER)
    // clang-format on

    namespace {
    using QualifierPtr =
        qorssl::OpenSslPtr<ESI_SIG_POLICY_QUALIFIER_INFO, ESI_SIG_POLICY_QUALIFIER_INFO_free>;

    // A qualifier list on `id`, created when the first qualifier comes.
    bool AddQualifier(ESI_SIGNATURE_POLICY_ID * id, QualifierPtr qualifier) {
        if (!qualifier) {
            return false;
        }
        if (id->sigPolicyQualifiers == nullptr) {
            id->sigPolicyQualifiers = sk_ESI_SIG_POLICY_QUALIFIER_INFO_new_null();
            if (id->sigPolicyQualifiers == nullptr) {
                return false;
            }
        }
        if (sk_ESI_SIG_POLICY_QUALIFIER_INFO_push(id->sigPolicyQualifiers, qualifier.get()) <= 0) {
            return false;
        }
        qualifier.release();
        return true;
    }

    QualifierPtr UriQualifier(const char* uri) {
        QualifierPtr qualifier(ESI_SIG_POLICY_QUALIFIER_INFO_new());
        if (!qualifier) {
            return qualifier;
        }
        qualifier->sigPolicyQualifierId = OBJ_nid2obj(NID_id_smime_spq_ets_sqt_uri);
        qualifier->sigQualifier.spUri = ASN1_IA5STRING_new();
        if (qualifier->sigPolicyQualifierId == nullptr ||
            qualifier->sigQualifier.spUri == nullptr ||
            ASN1_STRING_set(qualifier->sigQualifier.spUri, uri,
                            static_cast<int>(std::strlen(uri))) != 1) {
            qualifier.reset();
        }
        return qualifier;
    }

    QualifierPtr NoticeQualifier(const char* notice) {
        QualifierPtr qualifier(ESI_SIG_POLICY_QUALIFIER_INFO_new());
        if (!qualifier) {
            return qualifier;
        }
        qualifier->sigPolicyQualifierId = OBJ_nid2obj(NID_id_smime_spq_ets_sqt_unotice);
        USERNOTICE* userNotice = USERNOTICE_new();
        qualifier->sigQualifier.spUserNotice = userNotice;
        if (qualifier->sigPolicyQualifierId == nullptr || userNotice == nullptr) {
            qualifier.reset();
            return qualifier;
        }
        userNotice->exptext = ASN1_UTF8STRING_new();
        if (userNotice->exptext == nullptr ||
            ASN1_STRING_set(userNotice->exptext, notice, static_cast<int>(std::strlen(notice))) !=
                1) {
            qualifier.reset();
        }
        return qualifier;
    }

}  // namespace

ESI_SIGNATURE_POLICY_IDENTIFIER* QOR_Attr_SignaturePolicyIdentifier_Create(
    const char* policyOid, const EVP_MD* digest, const unsigned char* hash, const char* uri,
    const char* notice) {
    if (policyOid == nullptr || digest == nullptr || hash == nullptr) {
        return nullptr;
    }
    TesseraLib::policy::EsiSignaturePolicyIdPtr id(ESI_SIGNATURE_POLICY_ID_new());
    if (!id) {
        return nullptr;
    }
    ASN1_OBJECT_free(id->sigPolicyId);
    id->sigPolicyId = OBJ_txt2obj(policyOid, 1);
    const int size = EVP_MD_get_size(digest);
    X509_ALGOR_set_md(id->sigPolicyHash->hashAlgorithm, digest);
    if (id->sigPolicyId == nullptr || size <= 0 ||
        id->sigPolicyHash->hashAlgorithm->algorithm == nullptr ||
        OBJ_obj2nid(id->sigPolicyHash->hashAlgorithm->algorithm) == NID_undef ||
        ASN1_OCTET_STRING_set(id->sigPolicyHash->hashValue, hash, size) != 1) {
        return nullptr;
    }
    if ((uri != nullptr && !AddQualifier(id.get(), UriQualifier(uri))) ||
        (notice != nullptr && !AddQualifier(id.get(), NoticeQualifier(notice)))) {
        return nullptr;
    }
    TesseraLib::policy::EsiSignaturePolicyIdentifierPtr identifier(
        ESI_SIGNATURE_POLICY_IDENTIFIER_new());
    if (!identifier) {
        return nullptr;
    }
    identifier->type = 0;
    identifier->value.signaturePolicyId = id.release();
    return identifier.release();
}
