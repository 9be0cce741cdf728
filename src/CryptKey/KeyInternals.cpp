// OpenSSL-level helpers of the key classes.
//
// How a replaced private-key operation reaches OpenSSL 3: a key whose legacy
// RSA object carries a method other than OpenSSL's own is "foreign". For such
// keys EVP_PKEY_CTX creation (behind EVP_DigestSign, EVP_PKEY_sign and CMS)
// takes the legacy RSA path instead of exporting the key to the default
// provider, and that path calls RSA_private_encrypt, i.e. the method's
// private-encrypt entry. The flag is computed when the RSA object is assigned
// to the EVP_PKEY, so the method is installed first and the object assigned
// afterwards; OpenSSL's own engine key loading forces keys to legacy the same
// way. A key holding only modulus and exponent thus signs through the
// callback, although the default provider could not sign with it.
#include "CryptKey/KeyInternals.h"

#include "QorDer.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/proverr.h>

namespace TesseraLib {
namespace keys {

namespace {

// Shared by every key given a callback and used for the process's lifetime:
// keys may be released after static destruction, so the method is never
// freed.
RSA_METHOD* g_sharedMethod = nullptr;

}  // namespace

EvpPkeyPtr BuildModulusOnlyRsaKey(const EVP_PKEY* publicKey) {
    if (publicKey == nullptr || EVP_PKEY_get_base_id(publicKey) != EVP_PKEY_RSA) {
        return EvpPkeyPtr();
    }
    const RSA* source = EVP_PKEY_get0_RSA(publicKey);
    if (source == nullptr || RSA_get0_n(source) == nullptr || RSA_get0_e(source) == nullptr) {
        return EvpPkeyPtr();
    }
    BignumPtr modulus(BN_dup(RSA_get0_n(source)));
    BignumPtr exponent(BN_dup(RSA_get0_e(source)));
    RsaPtr rsa(RSA_new());
    EvpPkeyPtr key(EVP_PKEY_new());
    if (!modulus || !exponent || !rsa || !key ||
        RSA_set0_key(rsa.get(), modulus.get(), exponent.get(), nullptr) != 1) {
        return EvpPkeyPtr();
    }
    modulus.release();
    exponent.release();
    if (EVP_PKEY_assign_RSA(key.get(), rsa.get()) != 1) {
        return EvpPkeyPtr();
    }
    rsa.release();
    return key;
}

const RSA_METHOD* SharedRsaMethod() {
    return g_sharedMethod;
}

bool InstallPrivateEncrypt(EVP_PKEY* key, PrivateEncryptFunction callback) {
    if (key == nullptr || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA) {
        return false;
    }
    // For a provider key this is its legacy view, which becomes the key's
    // own RSA object below: pointers handed out earlier stay valid.
    RsaPtr rsa(EVP_PKEY_get1_RSA(key));
    if (!rsa) {
        return false;
    }
    if (g_sharedMethod == nullptr) {
        const RSA_METHOD* model = RSA_get_method(rsa.get());
        RsaMethodPtr copy(RSA_meth_dup(model != nullptr ? model : RSA_get_default_method()));
        if (!copy) {
            return false;
        }
        g_sharedMethod = copy.release();
    }
    if (RSA_meth_set_priv_enc(g_sharedMethod, callback) != 1 ||
        RSA_set_method(rsa.get(), g_sharedMethod) != 1) {
        return false;
    }
    // Re-assigning drops the provider data and marks the key foreign.
    if (EVP_PKEY_assign_RSA(key, rsa.get()) != 1) {
        return false;
    }
    rsa.release();
    return true;
}

bool TakeBadPassphraseError() {
    bool bad = false;
    for (unsigned long error = ERR_get_error(); error != 0; error = ERR_get_error()) {
        const int library = ERR_GET_LIB(error);
        const int reason = ERR_GET_REASON(error);
        // The cipher's final block does not unpad (reported by the provider,
        // or by EVP for legacy ciphers) for both key forms; PEM adds its own
        // reason for traditional keys, PKCS#12 for PKCS#8 ones. No pass
        // phrase at all for an encrypted key counts as a wrong one.
        bad = bad || (library == ERR_LIB_PROV && reason == PROV_R_BAD_DECRYPT) ||
              (library == ERR_LIB_EVP && reason == EVP_R_BAD_DECRYPT) ||
              (library == ERR_LIB_PEM &&
               (reason == PEM_R_BAD_DECRYPT || reason == PEM_R_BAD_PASSWORD_READ)) ||
              (library == ERR_LIB_PKCS12 && reason == PKCS12_R_PKCS12_CIPHERFINAL_ERROR);
    }
    return bad;
}

Pkcs12Ptr DecodePkcs12(const unsigned char* data, long size) {
    const long kMaxMacIterations = 10000000;
    Pkcs12Ptr pkcs12 = qorssl::DecodeWhole<Pkcs12Ptr>(d2i_PKCS12, data, size);
    if (!pkcs12) {
        return pkcs12;
    }
    const ASN1_INTEGER* iterations = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &iterations, pkcs12.get());
    if (iterations != nullptr && ASN1_INTEGER_get(iterations) > kMaxMacIterations) {
        return Pkcs12Ptr();
    }
    return pkcs12;
}

bool TakePkcs12MacError() {
    bool mac = false;
    for (unsigned long error = ERR_get_error(); error != 0; error = ERR_get_error()) {
        mac = mac || (ERR_GET_LIB(error) == ERR_LIB_PKCS12 &&
                      ERR_GET_REASON(error) == PKCS12_R_MAC_VERIFY_FAILURE);
    }
    return mac;
}

}  // namespace keys
}  // namespace TesseraLib
