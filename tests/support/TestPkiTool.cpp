// tessera_testpki [--rsa] OUTDIR [OCSP_URL]: writes the PKI the test servers use.
//
//   ca            "Tessera Test CA" (self-signed)
//   ├── tsa       time-stamping (critical EKU timeStamping)
//   ├── ocsp      OCSP responder (EKU OCSPSigning)
//   ├── good      end entity, serial 1001, status good
//   ├── revoked   end entity, serial 1002, revoked 2024-06-01 12:00:00 UTC, keyCompromise
//   └── unknown   end entity, serial 1003, not in the responder's index
//   untrusted-ca  another self-signed CA
//   └── untrusted-ocsp  an OCSP responder no test trusts
//
// Each NAME gives NAME.pem and NAME.key.pem; index.txt is the OCSP
// responder's database. End entities carry OCSP_URL in their AIA.
//
// Keys are P-256 (small and quick to make, what the server tests expect).
// With --rsa every key is RSA-2048, all signatures sha256WithRSAEncryption:
// the validation policy of `tessera validate` accepts only RSA, so a run
// that validates time-stamps and OCSP responses of these servers (the demo)
// asks for it.
#include <cstdio>
#include <string>

#include "TestPki.h"

using namespace tessera_test;

namespace {

void Save(const std::string& dir, const std::string& name, const Issued& issued) {
    WriteTextFile(dir + "/" + name + ".pem", CertToPem(issued.cert.get()));
    WriteTextFile(dir + "/" + name + ".key.pem", KeyToPem(issued.key.get()));
}

KeyKind g_keyKind = KeyKind::EcP256;

CertPlan Profile(const std::string& name, long serial, bool ca) {
    CertPlan profile = BasicProfile(name, serial, ca);
    profile.keyKind = g_keyKind;
    return profile;
}

CertPlan EndEntity(const std::string& name, long serial, const std::string& ocspUrl) {
    CertPlan profile = Profile(name, serial, false);
    if (!ocspUrl.empty()) {
        profile.extensions.push_back({"authorityInfoAccess", "OCSP;URI:" + ocspUrl});
    }
    return profile;
}

std::string Subject(X509* cert) {
    char* text = X509_NAME_oneline(X509_get_subject_name(cert), nullptr, 0);
    std::string subject = text != nullptr ? text : "";
    OPENSSL_free(text);
    return subject;
}

}  // namespace

int main(int argc, char** argv) {
    int first = 1;
    if (argc > 1 && std::string(argv[1]) == "--rsa") {
        g_keyKind = KeyKind::Rsa2048;
        first = 2;
    }
    if (argc - first < 1 || argc - first > 2 || argv[first][0] == '-') {
        std::fprintf(stderr, "usage: tessera_testpki [--rsa] OUTDIR [OCSP_URL]\n");
        return 2;
    }
    const std::string dir = argv[first];
    const std::string ocspUrl = argc - first > 1 ? argv[first + 1] : "";
    try {
        const Issued ca = IssueCertificate(Profile("Tessera Test CA", 1, true), nullptr);
        Save(dir, "ca", ca);

        CertPlan tsa = Profile("Tessera Test TSA", 2, false);
        tsa.extensions.push_back({"extendedKeyUsage", "critical,timeStamping"});
        Save(dir, "tsa", IssueCertificate(tsa, &ca));

        CertPlan responder = Profile("Tessera Test OCSP Responder", 3, false);
        responder.extensions = {{"keyUsage", "critical,digitalSignature"},
                                {"extendedKeyUsage", "OCSPSigning"}};
        Save(dir, "ocsp", IssueCertificate(responder, &ca));

        const Issued good = IssueCertificate(EndEntity("Good Signer", 0x1001, ocspUrl), &ca);
        const Issued revoked = IssueCertificate(EndEntity("Revoked Signer", 0x1002, ocspUrl), &ca);
        const Issued unknown = IssueCertificate(EndEntity("Unknown Signer", 0x1003, ocspUrl), &ca);
        Save(dir, "good", good);
        Save(dir, "revoked", revoked);
        Save(dir, "unknown", unknown);

        const Issued otherCa =
            IssueCertificate(Profile("Untrusted Test CA", 1, true), nullptr);
        Save(dir, "untrusted-ca", otherCa);
        responder.commonName = "Untrusted OCSP Responder";
        Save(dir, "untrusted-ocsp", IssueCertificate(responder, &otherCa));

        // The responder's database: good and revoked are listed, unknown is not.
        const std::string expiry = "400101000000Z";
        WriteTextFile(dir + "/index.txt", "V\t" + expiry + "\t\t1001\tunknown\t" +
                                              Subject(good.cert.get()) + "\n" + "R\t" + expiry +
                                              "\t240601120000Z,keyCompromise\t1002\tunknown\t" +
                                              Subject(revoked.cert.get()) + "\n");
        WriteTextFile(dir + "/index.txt.attr", "unique_subject = no\n");
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tessera_testpki: %s\n", e.what());
        return 1;
    }
    return 0;
}
