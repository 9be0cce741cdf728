// tessera_testpki OUTDIR [OCSP_URL]: writes the PKI the test servers use.
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
#include <cstdio>
#include <string>

#include "TestPki.h"

using namespace tessera_test;

namespace {

void Save(const std::string& dir, const std::string& name, const Issued& issued) {
    WriteTextFile(dir + "/" + name + ".pem", CertToPem(issued.cert.get()));
    WriteTextFile(dir + "/" + name + ".key.pem", KeyToPem(issued.key.get()));
}

CertPlan EndEntity(const std::string& name, long serial, const std::string& ocspUrl) {
    CertPlan profile = BasicProfile(name, serial, false);
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
    if (argc < 2) {
        std::fprintf(stderr, "usage: tessera_testpki OUTDIR [OCSP_URL]\n");
        return 2;
    }
    const std::string dir = argv[1];
    const std::string ocspUrl = argc > 2 ? argv[2] : "";
    try {
        const Issued ca = IssueCertificate(BasicProfile("Tessera Test CA", 1, true), nullptr);
        Save(dir, "ca", ca);

        CertPlan tsa = BasicProfile("Tessera Test TSA", 2, false);
        tsa.extensions.push_back({"extendedKeyUsage", "critical,timeStamping"});
        Save(dir, "tsa", IssueCertificate(tsa, &ca));

        CertPlan responder = BasicProfile("Tessera Test OCSP Responder", 3, false);
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
            IssueCertificate(BasicProfile("Untrusted Test CA", 1, true), nullptr);
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
