#include "X509WinStore.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "CryptException.h"
#include "CryptKey.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "QorTextConv.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

const wchar_t kChannelName[] = L"X509WinStore";
const char kKeyExtension[] = ".key";

bool IsCertificateFile(const std::string& name) {
    for (const char* extension : {".pem", ".crt", ".cer", ".der"}) {
        const std::size_t length = std::strlen(extension);
        if (name.size() > length && name.compare(name.size() - length, length, extension) == 0) {
            return true;
        }
    }
    return false;
}

bool ReadWholeFile(const std::string& path, std::vector<unsigned char>* bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    // A directory opens but does not read.
    return !in.bad();
}

bool LooksLikePem(const std::vector<unsigned char>& bytes) {
    static const char marker[] = "-----BEGIN ";
    return std::search(bytes.begin(), bytes.end(), marker, marker + sizeof(marker) - 1) !=
           bytes.end();
}

// The certificates of a file's bytes in file order: the certificate blocks
// of PEM text (blocks of other kinds and undecodable ones are passed over),
// or the one DER certificate.
std::vector<X509Ptr> DecodeCertificates(const std::vector<unsigned char>& bytes) {
    std::vector<X509Ptr> certificates;
    if (!LooksLikePem(bytes)) {
        X509Ptr certificate = qorssl::DecodeWhole<X509Ptr>(d2i_X509, bytes.data(), bytes.size());
        if (certificate) {
            certificates.push_back(std::move(certificate));
        }
        ERR_clear_error();
        return certificates;
    }
    BioPtr bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    if (!bio) {
        Fail(ErrOutOfMemory);
    }
    for (;;) {
        char* name = nullptr;
        char* header = nullptr;
        unsigned char* data = nullptr;
        long length = 0;
        const int read = PEM_read_bio(bio.get(), &name, &header, &data, &length);
        OpenSslTextPtr nameOwner(name);
        OpenSslTextPtr headerOwner(header);
        OpenSslBytesPtr dataOwner(data);
        if (read != 1) {
            break;
        }
        if (length > 0 && (std::strcmp(name, PEM_STRING_X509) == 0 ||
                           std::strcmp(name, PEM_STRING_X509_OLD) == 0)) {
            X509Ptr certificate = qorssl::DecodeWhole<X509Ptr>(d2i_X509, data, length);
            if (certificate) {
                certificates.push_back(std::move(certificate));
            }
        }
    }
    // The end of the text reads as an error.
    ERR_clear_error();
    return certificates;
}

// Keys are never encrypted here: without this callback OpenSSL would ask for
// a password on the terminal.
int NoPassword(char* /*buffer*/, int /*size*/, int /*rwflag*/, void* /*userdata*/) {
    return 0;
}

}  // namespace

// What Open read. Never changed afterwards, so that copies can share it.
struct X509WinStore::Snapshot {
    struct Entry {
        qorstd::QorArray<unsigned char> der;
        std::string keyPath;  // empty: no key file
    };

    qorstd::QorVector<X509Certificate> certificates;
    std::vector<Entry> entries;  // parallel to `certificates`

    // The index of the first certificate with the DER `der`, or -1.
    long Find(const qorstd::QorArray<unsigned char>& der) const {
        if (der.GetSize() == 0) {
            return -1;
        }
        for (std::size_t i = 0; i < entries.size(); ++i) {
            if (entries[i].der == der) {
                return static_cast<long>(i);
            }
        }
        return -1;
    }
};

X509WinStore::X509WinStore() : m_log(std::make_unique<LogChannel>(kChannelName)) {}

X509WinStore::X509WinStore(void* handle) : m_log(std::make_unique<LogChannel>(kChannelName)) {
    if (handle != nullptr) {
        auto* adopted = static_cast<std::shared_ptr<const Snapshot>*>(handle);
        m_snapshot = *adopted;
        delete adopted;
    }
}

X509WinStore::X509WinStore(const X509WinStore& other)
    : X509Store(other),
      m_log(std::make_unique<LogChannel>(kChannelName)),
      m_snapshot(other.m_snapshot) {}

X509WinStore& X509WinStore::operator=(const X509WinStore& other) {
    if (this != &other) {
        X509Store::operator=(other);
        m_snapshot = other.m_snapshot;
    }
    return *this;
}

X509WinStore::~X509WinStore() {
    X509Store::FreeStore();
    Close();
}

int X509WinStore::Open(const wchar_t* storeName, unsigned long /*flags*/) {
    Close();
    if (storeName == nullptr || storeName[0] == L'\0') {
        return 0;
    }
    TLOG_INFO(m_log, L"Open(Store:%ls)", storeName);
    const std::filesystem::path directory(qorstd::text::WideToNarrow(storeName, false).c_str());
    std::error_code error;
    std::filesystem::directory_iterator listing(directory, error);
    if (error) {
        TLOG_ERROR(m_log, L"Open: Cannot list the directory %ls.", storeName);
        return 0;
    }
    std::vector<std::string> names;
    for (const std::filesystem::directory_entry& entry : listing) {
        const std::string name = entry.path().filename().string();
        if (IsCertificateFile(name)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());

    auto snapshot = std::make_shared<Snapshot>();
    for (const std::string& name : names) {
        const std::filesystem::path path = directory / name;
        std::vector<unsigned char> bytes;
        if (!ReadWholeFile(path.string(), &bytes)) {
            TLOG_WARNING(m_log, L"Open: Cannot read %hs, left out.", path.string().c_str());
            continue;
        }
        std::vector<X509Ptr> certificates = DecodeCertificates(bytes);
        if (certificates.empty()) {
            TLOG_WARNING(m_log, L"Open: No certificate in %hs, left out.", path.string().c_str());
            continue;
        }
        std::filesystem::path keyPath = path;
        keyPath.replace_extension(kKeyExtension);
        // A key file that cannot be read counts as standing there: asking
        // for the key then reports it instead of pretending there is none.
        const bool withKey =
            std::filesystem::exists(std::filesystem::symlink_status(keyPath, error));
        for (std::size_t i = 0; i < certificates.size(); ++i) {
            X509Certificate certificate;
            try {
                certificate = X509Certificate(certificates[i].get());
            } catch (const CryptException&) {
                // OpenSSL decoded it, but its fields cannot be read; the
                // file's other certificates still count.
                TLOG_WARNING(m_log, L"Open: Certificate %u of %hs cannot be read, left out.",
                             static_cast<unsigned>(i + 1), path.string().c_str());
                continue;
            }
            snapshot->entries.push_back(
                {certificate.Export(), withKey && i == 0 ? keyPath.string() : std::string()});
            snapshot->certificates.Add(certificate);
        }
    }
    TLOG_DEBUG(m_log, L"Open: %u certificates.", snapshot->certificates.GetSize());
    m_snapshot = std::move(snapshot);
    return 1;
}

void X509WinStore::Close() {
    m_snapshot.reset();
}

void X509WinStore::FreeStore() {
    X509Store::FreeStore();
    Close();
}

void* X509WinStore::DuplicateHandle() const {
    if (!m_snapshot) {
        return nullptr;
    }
    return new std::shared_ptr<const Snapshot>(m_snapshot);
}

void X509WinStore::CloseHandle(void* handle) {
    delete static_cast<std::shared_ptr<const Snapshot>*>(handle);
}

int X509WinStore::FindCertificate(const X509Name& subject, X509Certificate& found) const {
    if (!m_snapshot || subject.GetX509Name() == nullptr) {
        return 0;
    }
    const qorstd::QorArray<unsigned char> name = subject.Export();
    const qorstd::QorVector<X509Certificate>& certificates = m_snapshot->certificates;
    for (unsigned i = 0; i < certificates.GetSize(); ++i) {
        if (certificates.GetAt(i).GetSubject() == name) {
            found = certificates.GetAt(i);
            return 1;
        }
    }
    return 0;
}

int X509WinStore::FindCertificate(X509Certificate& cert, int withPrivateKey) {
    if (!m_snapshot || m_snapshot->Find(cert.Export()) < 0) {
        return 0;
    }
    if (withPrivateKey == 0) {
        return 1;
    }
    EVP_PKEY* found = nullptr;
    if (FindPrivateKey(cert, &found) == 1) {
        const EvpPkeyPtr key(found);
        const std::unique_ptr<CryptKey> wrapped(CryptKey::CreateKey(key.get()));
        if (!wrapped) {
            Fail(m_log, L"FindCertificate: The key is neither RSA nor EC.", ErrPrivateKeyRead);
        }
        cert.SetPrivateKey(wrapped.get());
    }
    return 1;
}

int X509WinStore::FindIssuer(const X509Certificate& cert, X509Certificate& issuer) const {
    if (!m_snapshot || cert.GetX509() == nullptr) {
        return 0;
    }
    const X509Certificate* found = x509::FindIssuerIn(m_snapshot->certificates, cert.GetX509());
    if (found == nullptr) {
        return 0;
    }
    issuer = *found;
    return 1;
}

qorstd::QorVector<X509Certificate> X509WinStore::GetCertificates() const {
    if (!m_snapshot) {
        return qorstd::QorVector<X509Certificate>();
    }
    return m_snapshot->certificates;
}

qorstd::QorStringW X509WinStore::CreateKeyInfo(const X509Certificate& cert) const {
    const long index = m_snapshot ? m_snapshot->Find(cert.Export()) : -1;
    if (index < 0) {
        return qorstd::QorStringW();
    }
    const std::string& path = m_snapshot->entries[static_cast<std::size_t>(index)].keyPath;
    return qorstd::text::NarrowToWide(path.c_str(), static_cast<unsigned int>(path.size()), "");
}

int X509WinStore::FindPrivateKey(const X509Certificate& cert, evp_pkey_st** key) const {
    if (cert.GetX509() == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    const qorstd::QorString path = qorstd::text::WideToNarrow(CreateKeyInfo(cert).c_str(), false);
    if (path.empty()) {
        return 0;
    }
    TLOG_DEBUG(m_log, L"FindPrivateKey(File:%hs)", path.c_str());
    std::vector<unsigned char> bytes;
    if (!ReadWholeFile(path.c_str(), &bytes) || bytes.empty()) {
        TLOG_ERROR(m_log, L"FindPrivateKey: Cannot read %hs.", path.c_str());
        Fail(ErrPrivateKeyRead);
    }
    BioPtr bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    if (!bio) {
        Fail(ErrOutOfMemory);
    }
    EvpPkeyPtr loaded(PEM_read_bio_PrivateKey(bio.get(), nullptr, NoPassword, nullptr));
    if (!loaded) {
        FailCrypto(m_log, "FindPrivateKey: PEM_read_bio_PrivateKey() failed.", ErrPrivateKeyRead);
    }
    if (X509_check_private_key(cert.GetX509(), loaded.get()) != 1) {
        FailCrypto(m_log, "FindPrivateKey: X509_check_private_key() failed.", ErrPrivateKeyRead);
    }
    *key = loaded.release();
    return 1;
}

}  // namespace TesseraLib
