// The smart-card store over readers, a card database and card providers held
// in memory: discovery (no reader, no card, ATR lengths, several readers),
// provider selection, the keys read per provider, key loading and a
// CAdES signature made with a card key. Then pcsc-lite itself, with no daemon
// and with a daemon that has no reader. The PKI:
//
//   Card Root (EC) ......... issues every card certificate
//    ├── Exchange 1, Signature 1   container "c1" (exchange and signature key)
//    ├── Exchange 2, Signature 2   container "c2"
//    └── Large                     a certificate of more than 8 KiB
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "SignedCades.h"
#include "SmartCardServices.h"
#include "TestTessera.h"
#include "X509WinCardStore.h"
#include "x509/WinCard.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

Issued Make(const char* name, long serial, int slot, const Issued* issuer,
            std::vector<std::pair<std::string, std::vector<unsigned char>>> raw = {}) {
    CertPlan plan = BasicProfile(name, serial, issuer == nullptr);
    const KeyPtr key = CachedKey(KeyKind::EcP256, slot);
    plan.key = key.get();
    plan.rawExtensions = std::move(raw);
    return IssueCertificate(plan, issuer);
}

struct Pki {
    Issued root = Make("Card Root", 1, 0, nullptr);
    Issued exchange1 = Make("Exchange 1", 11, 1, &root),
           signature1 = Make("Signature 1", 12, 2, &root),
           exchange2 = Make("Exchange 2", 21, 3, &root),
           signature2 = Make("Signature 2", 22, 4, &root);
    Issued large =
        Make("Large", 31, 5, &root,
             {{"1.3.6.1.4.1.99999.9.1", StringDer(V_ASN1_OCTET_STRING, std::string(9000, 'x'))}});
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

// ---- readers ----------------------------------------------------------------

struct MemoryReader {
    std::string name;
    bool present;
    Bytes atr;
};

// Readers in the listed order; the store queries them in that order.
class MemoryReaders : public cardreaders::ReaderService {
public:
    std::vector<MemoryReader> readers;
    long listResult = cardreaders::kSuccess, statusResult = cardreaders::kSuccess;
    int open = 0;  // contexts established and not yet released

    long EstablishContext(unsigned long, cardreaders::Context& context) override {
        context = ++open;
        return cardreaders::kSuccess;
    }
    long ReleaseContext(cardreaders::Context) override { return --open, cardreaders::kSuccess; }
    long ListReaders(cardreaders::Context, std::vector<std::string>& names) override {
        for (const MemoryReader& reader : readers) {
            names.push_back(reader.name);
        }
        return listResult;
    }
    long GetStatusChange(cardreaders::Context, unsigned long,
                         std::vector<cardreaders::ReaderState>& states) override {
        for (size_t i = 0; i < states.size(); ++i) {
            states[i].eventState = readers[i].present ? 0x30 : 0x10;  // 0x10: empty
            states[i].atr = readers[i].present ? readers[i].atr : Bytes();
        }
        return statusResult;
    }
};

// ---- card database and providers --------------------------------------------

class MemoryDatabase : public CardDatabase {
public:
    std::map<Bytes, std::vector<std::wstring>> cards;  // by the 36-byte ATR
    std::map<std::wstring, std::wstring> providers;    // by card name
    std::vector<Bytes> asked;

    int ListCards(const qorstd::QorArray<unsigned char>& atr,
                  qorstd::QorVector<qorstd::QorStringW>& names) override {
        asked.push_back(ToBytes(atr));
        for (const std::wstring& name : cards[ToBytes(atr)]) {
            names.Add(name.c_str());
        }
        return 1;
    }
    int GetCryptoProvider(const qorstd::QorStringW& card, qorstd::QorStringW& provider) override {
        const auto found = providers.find(card.c_str());
        if (found == providers.end()) {
            return 0;
        }
        provider.assign(found->second.data(), static_cast<unsigned>(found->second.size()));
        return 1;
    }
};

struct MemoryContainer {
    std::string name;
    const Issued* exchange;   // the exchange key (1), may be null
    const Issued* signature;  // the signature key (2), may be null
};

class MemoryProvider : public CardProvider {
public:
    std::string name;
    std::vector<MemoryContainer> containers;
    std::vector<unsigned long> keysRead;
    int verifyContexts = 0;
    bool enumerationFails = false;
    bool keysMissing = false;

    MemoryProvider(std::string providerName, unsigned long providerType)
        : name(std::move(providerName)), m_type(providerType) {}

    CardProviderContext* AcquireContext(const wchar_t* container) override {
        if (container == nullptr) {
            ++verifyContexts;
            return new Context(*this, nullptr);
        }
        for (const MemoryContainer& entry : containers) {
            if (std::wstring(entry.name.begin(), entry.name.end()) == container) {
                return new Context(*this, &entry);
            }
        }
        return nullptr;
    }
    EVP_PKEY* LoadPrivateKey(const char* container, unsigned long keySpec) override {
        for (const MemoryContainer& entry : containers) {
            const Issued* key = keySpec == 1 ? entry.exchange : entry.signature;
            if (!keysMissing && entry.name == container && key != nullptr &&
                EVP_PKEY_up_ref(key->key.get()) == 1) {
                return key->key.get();
            }
        }
        return nullptr;
    }

private:
    class Context : public CardProviderContext {
    public:
        Context(MemoryProvider& provider, const MemoryContainer* container)
            : m_provider(provider), m_container(container) {}
        int GetProviderName(qorstd::QorString& text) const override {
            text = m_provider.name.c_str();
            return 1;
        }
        int GetProviderType(unsigned long& type) const override {
            type = m_provider.m_type;
            return 1;
        }
        cptCardResult EnumContainers(int first, qorstd::QorString& text) override {
            m_next = first != 0 ? 0 : m_next;
            if (m_provider.enumerationFails) {
                return cptCardFailed;
            }
            if (m_next >= m_provider.containers.size()) {
                return cptCardNoMoreItems;
            }
            text = m_provider.containers[m_next++].name.c_str();
            return cptCardOk;
        }
        cptCardResult ReadCertificate(unsigned long keySpec, unsigned char* buffer,
                                      unsigned long& length) override {
            m_provider.keysRead.push_back(keySpec);
            const Issued* issued = keySpec == 1 ? m_container->exchange : m_container->signature;
            if (issued == nullptr) {
                return cptCardFailed;
            }
            const Bytes der = CertToDer(issued->cert.get());
            if (length < der.size()) {
                length = static_cast<unsigned long>(der.size());
                return cptCardMoreData;
            }
            std::memcpy(buffer, der.data(), der.size());
            length = static_cast<unsigned long>(der.size());
            return cptCardOk;
        }

    private:
        MemoryProvider& m_provider;
        const MemoryContainer* m_container;
        size_t m_next = 0;
    };

    unsigned long m_type;
};

Bytes Padded(Bytes atr) {
    atr.resize(36, 0);
    return atr;
}

// Readers, database and providers installed for one test, removed after it.
class CardStoreTest : public ::testing::Test {
protected:
    MemoryReaders readers;
    MemoryDatabase database;
    MemoryProvider velmark{"VelmarkCSP", 1}, dunrow{"Dunrow CSP", 24};

    void SetUp() override {
        cardreaders::SetReaders(&readers);
        SmartCardServices::SetCardDatabase(&database);
        const std::vector<MemoryContainer> containers = {{"c1", &P().exchange1, &P().signature1},
                                                         {"c2", &P().exchange2, &P().signature2}};
        velmark.containers = dunrow.containers = containers;
        SmartCardServices::RegisterProvider(L"VelmarkCSP", 1, &velmark);
        SmartCardServices::RegisterProvider(L"Dunrow CSP", 24, &dunrow);
    }
    void TearDown() override {
        SmartCardServices::UnregisterAll();
        cardreaders::SetReaders(nullptr);
    }

    unsigned char cardCount = 0;
    // One reader holding a card of `provider`.
    void InsertCard(const std::wstring& provider, const std::string& reader = "Reader 0") {
        const Bytes atr = Bytes(12, ++cardCount);
        readers.readers.push_back({reader, true, atr});
        const std::wstring card = L"Card of " + provider;
        database.cards[Padded(atr)].push_back(card);
        database.providers[card] = provider;
    }
};

std::vector<std::string> Subjects(const qorstd::QorVector<X509Certificate>& certificates) {
    std::vector<std::string> subjects;
    for (unsigned i = 0; i < certificates.GetSize(); ++i) {
        subjects.push_back(Narrow(certificates.GetAt(i).GetSubjectStringX500(0)));
    }
    return subjects;
}

std::string Cn(const char* name) {
    return std::string("O=Tessera Test,CN=") + name;
}

TEST_F(CardStoreTest, NoReaderAndNoCardAreReportedApart) {
    X509WinCardStore store;
    const Thrown none = Catch([&] { store.Open(); });
    EXPECT_EQ(ErrNoCardReader, none.code) << "no reader at all";
    EXPECT_EQ("", none.message) << "the message is empty";

    readers.readers = {{"Reader 0", false, {}}};
    readers.listResult = cardreaders::kNoReadersAvailable;
    EXPECT_EQ(ErrNoCardReader, CodeOf([&] { store.Open(); })) << "the listing failed";

    readers.listResult = cardreaders::kSuccess;
    readers.readers.push_back({"Reader 1", false, {}});
    const Thrown empty = Catch([&] { store.Open(); });
    EXPECT_EQ(ErrCardNotInserted, empty.code) << "two readers, neither holds a card";
    EXPECT_EQ("", empty.message) << "the message is empty";

    readers.readers[1] = {"Reader 1", true, Bytes(12, 1)};
    readers.statusResult = cardreaders::kNoService;
    EXPECT_EQ(ErrCardNotInserted, CodeOf([&] { store.Open(); })) << "the state query failed";
    EXPECT_EQ(0, readers.open) << "every context established is released";
}

TEST_F(CardStoreTest, AtrsArePaddedToThirtySixBytesAndLongerOnesAreSkipped) {
    readers.readers = {{"Full", true, Bytes(36, 0xA1)},
                       {"Short", true, Bytes(10, 0xB2)},
                       {"Long", true, Bytes(40, 0xC3)}};
    X509WinCardStore store;
    EXPECT_EQ(0, store.Open()) << "no card of a supported provider";
    ASSERT_EQ(2u, database.asked.size()) << "the 40-byte ATR is not looked up";
    EXPECT_EQ(Bytes(36, 0xA1), database.asked[0]) << "a 36-byte ATR is looked up unchanged";
    Bytes shortAtr = Bytes(10, 0xB2);
    shortAtr.insert(shortAtr.end(), 26, 0);
    EXPECT_EQ(shortAtr, database.asked[1]) << "a 10-byte ATR gets 26 zero bytes";
}

TEST_F(CardStoreTest, TheFirstCardOfASupportedProviderIsOpened) {
    // An unknown provider, then the old Halvern name, then Velmark: Halvern
    // is taken under its new name.
    InsertCard(L"Other CSP", "Reader A");
    InsertCard(L"Q.OR Halvern v1.0", "Reader C");
    InsertCard(L"VelmarkCSP", "Reader D");
    SmartCardServices::RegisterProvider(L"Other CSP", 1, &velmark);
    MemoryProvider halvern{"Q.OR Halvern CSP v1.0", 1};
    SmartCardServices::RegisterProvider(L"Q.OR Halvern CSP v1.0", 1, &halvern);
    X509WinCardStore store;
    EXPECT_EQ(1, store.Open()) << "the Halvern card opens";
    EXPECT_EQ("Q.OR Halvern CSP v1.0", Narrow(store.GetProviderName()))
        << "the old Halvern name is replaced by the new one";
    EXPECT_EQ(1u, store.GetProviderType()) << "the provider's type";

    SmartCardServices::UnregisterProvider(L"Q.OR Halvern CSP v1.0");
    EXPECT_EQ(0, store.Open()) << "a supported name that is not installed stops the search";
    EXPECT_EQ("Q.OR Halvern CSP v1.0", Narrow(store.GetProviderName()))
        << "and leaves the earlier provider open";
}

TEST_F(CardStoreTest, ProviderTypeIsRsaFullOrRsaAes) {
    InsertCard(L"Dunrow CSP");
    X509WinCardStore store;
    ASSERT_EQ(1, store.Open()) << "Dunrow is installed with type 24";
    EXPECT_EQ(24u, store.GetProviderType()) << "type 24 when type 1 is not installed";

    MemoryProvider rsaFull{"Dunrow CSP", 1};
    SmartCardServices::RegisterProvider(L"Dunrow CSP", 1, &rsaFull);
    ASSERT_EQ(1, store.Open()) << "Dunrow is installed with type 1";
    EXPECT_EQ(1u, store.GetProviderType()) << "type 1";

    // Neither type: Open gives up at once, although a Velmark card follows.
    SmartCardServices::RegisterProvider(L"Dunrow CSP", 12, &dunrow);
    InsertCard(L"VelmarkCSP", "Reader 1");
    EXPECT_EQ(0, store.Open()) << "a provider of another type is not opened";
}

TEST_F(CardStoreTest, VelmarkReadsBothKeysDunrowOnlyTheExchangeKey) {
    InsertCard(L"VelmarkCSP");
    X509WinCardStore velmarkStore;
    ASSERT_EQ(1, velmarkStore.Open()) << "the Velmark card opens";
    EXPECT_EQ((std::vector<std::string>{Cn("Exchange 1"), Cn("Signature 1"), Cn("Exchange 2"),
                                        Cn("Signature 2")}),
              Subjects(velmarkStore.GetCertificates()))
        << "per container the exchange key, then the signature key";

    readers.readers.clear();
    InsertCard(L"Dunrow CSP");
    X509WinCardStore dunrowStore;
    ASSERT_EQ(1, dunrowStore.Open()) << "the Dunrow card opens";
    EXPECT_EQ((std::vector<std::string>{Cn("Exchange 1"), Cn("Exchange 2")}),
              Subjects(dunrowStore.GetCertificates()))
        << "one key per container";
    EXPECT_EQ((std::vector<unsigned long>{1, 1}), dunrow.keysRead)
        << "the signature key is never read";
    X509Certificate signature = Cert(P().signature1);
    EXPECT_EQ(0, dunrowStore.FindCertificate(signature, 0))
        << "a signature key's certificate is not found on Dunrow";
}

TEST_F(CardStoreTest, FindCertificateAttachesTheCardKey) {
    InsertCard(L"VelmarkCSP");
    X509WinCardStore store;
    ASSERT_EQ(1, store.Open()) << "the Velmark card opens";

    X509Certificate first = Cert(P().exchange1);
    EXPECT_EQ(1, store.FindCertificate(first, 0)) << "found in the first of two containers";
    EXPECT_EQ(0, first.HasPrivateKey()) << "no key without asking for it";

    X509Certificate second = Cert(P().signature2);
    EXPECT_EQ(1, store.FindCertificate(second, 1)) << "the signature key of the second container";
    ASSERT_EQ(1, second.HasPrivateKey()) << "the provider's key is attached";
    EXPECT_EQ(1, EVP_PKEY_eq(second.GetPrivateKey()->GetKeyEVP(), P().signature2.key.get()))
        << "the key of that container and kind";

    X509Certificate root = Cert(P().root);
    EXPECT_EQ(0, store.FindCertificate(root, 1)) << "a certificate not on the card";

    X509Certificate read;
    EXPECT_EQ(0, store.FindCertificate(L"c3", 1, read, 0)) << "an unknown container";
    velmark.containers.push_back({"big", &P().large, nullptr});
    velmark.keysRead.clear();
    EXPECT_EQ(1, store.FindCertificate(L"big", 1, read, 0)) << "a certificate of over 8 KiB";
    EXPECT_EQ(1, read.Equals(Cert(P().large))) << "is read whole";
    EXPECT_EQ((std::vector<unsigned long>{1, 1}), velmark.keysRead)
        << "once more after the provider asked for a larger buffer";
    velmark.keysMissing = true;
    const Thrown noKey = Catch([&] { store.FindCertificate(L"c1", 2, read, 1); });
    EXPECT_EQ(ErrPrivateKeyRead, noKey.code) << "the provider has no key for the certificate";
    EXPECT_EQ("", noKey.message) << "the message is empty";
}

TEST_F(CardStoreTest, ProviderFailuresAreInternalErrors) {
    InsertCard(L"VelmarkCSP");
    X509WinCardStore store;
    ASSERT_EQ(1, store.Open()) << "the Velmark card opens";
    velmark.enumerationFails = true;
    EXPECT_EQ(ErrInternal, CodeOf([&] { store.GetKeyContainers(); }))
        << "an enumeration that ends without 'no more items'";
    velmark.enumerationFails = false;
    velmark.name = std::string(260, 'N');
    EXPECT_EQ(ErrInternal, CodeOf([&] { store.GetProviderName(); }))
        << "a name that does not fit the 260-byte buffer";
    velmark.name = "VelmarkCSP";
    velmark.containers[0].name = "";
    EXPECT_EQ(ErrInternal, CodeOf([&] { store.GetCertificates(); })) << "an empty container name";
}

TEST_F(CardStoreTest, ACopyOpensTheCardAgain) {
    X509WinCardStore closed;
    X509WinCardStore closedCopy(closed);
    EXPECT_EQ(0u, closedCopy.GetCertificates().GetSize()) << "a copy of a closed store is closed";

    InsertCard(L"VelmarkCSP");
    auto source = std::make_unique<X509WinCardStore>();
    ASSERT_EQ(1, source->Open()) << "the Velmark card opens";
    X509WinCardStore copy(*source);
    closed = *source;
    source.reset();
    EXPECT_EQ(3, velmark.verifyContexts) << "the copy and the assigned store opened on their own";
    EXPECT_EQ(4u, copy.GetCertificates().GetSize()) << "the copy outlives its source";
    EXPECT_EQ(4u, closed.GetCertificates().GetSize()) << "so does the assigned store";
}

// `openssl cms -verify` accepts a CAdES-BES signature made with the key the
// card provider hands out.
TEST_F(CardStoreTest, CadesSignatureWithTheCardKeyVerifies) {
    InsertCard(L"VelmarkCSP");
    X509WinCardStore store;
    ASSERT_EQ(1, store.Open()) << "the Velmark card opens";
    X509Certificate cert = Cert(P().signature1);
    ASSERT_EQ(1, store.FindCertificate(cert, 1)) << "the signer certificate is on the card";

    std::string why;
    EXPECT_TRUE(OpensslVerifiesCadesBy(cert, "signed on the card\n", P().root.cert.get(), &why))
        << "openssl verifies the signature and gives the content back: " << why;
}

// ---- pcsc-lite --------------------------------------------------------------

// pcsc-lite's client reads the daemon's socket name once per process: every
// test of this program uses the same private one, in a folder removed at exit.
class PrivateSocketDir {
public:
    PrivateSocketDir() {
        char pattern[] = "/tmp/tessera-pcsc-XXXXXX";
        if (mkdtemp(pattern) != nullptr) {
            m_dir = pattern;
        }
        m_socket = (m_dir.empty() ? std::string("/tmp/tessera-pcsc-none") : m_dir) + "/pcscd.comm";
        setenv("PCSCLITE_CSOCK_NAME", m_socket.c_str(), 1);
    }
    ~PrivateSocketDir() {
        if (!m_dir.empty()) {
            unlink(m_socket.c_str());
            rmdir(m_dir.c_str());
        }
    }
    const std::string& Socket() const { return m_socket; }

private:
    std::string m_dir;
    std::string m_socket;
};

std::string PrivateSocket() {
    static const PrivateSocketDir dir;
    return dir.Socket();
}

TEST(CardStorePcsc, WithoutDaemonThereIsNoReader) {
    PrivateSocket();
    X509WinCardStore store;
    EXPECT_EQ(ErrNoCardReader, CodeOf([&] { store.Open(); }))
        << "no pcscd listens on the private socket";
}

// pcscd takes its listening socket from the caller (socket activation), so
// that it serves the private socket and leaves the system's alone.
class PcscDaemon {
public:
    explicit PcscDaemon(const std::string& socketPath) {
        m_listener = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
        unlink(socketPath.c_str());
        if (m_listener < 0 ||
            bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(m_listener, 8) != 0) {
            m_problem = "cannot listen on " + socketPath;
            return;
        }
        m_socket = socketPath;
        m_pid = fork();
        if (m_pid == 0) {
            dup2(m_listener, 3);
            setenv("LISTEN_FDS", "1", 1);
            setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
            // -x: the daemon ends by itself after a minute without clients.
            execl("/usr/sbin/pcscd", "pcscd", "--foreground", "--auto-exit", "--error",
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        close(m_listener);
        m_listener = -1;
        // Clients queue on the socket until the daemon serves them; one that
        // cannot start ends at once. Bounded to five seconds.
        for (int i = 0; i < 100; ++i) {
            int status = 0;
            if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
                m_problem = "pcscd ended at start with status " + std::to_string(status);
                m_pid = -1;
                return;
            }
            cardreaders::Context context = 0;
            if (cardreaders::Readers().EstablishContext(cardreaders::kScopeUser, context) ==
                cardreaders::kSuccess) {
                cardreaders::Readers().ReleaseContext(context);
                return;
            }
            usleep(50000);
        }
        m_problem = "pcscd does not answer";
    }
    ~PcscDaemon() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
        if (m_listener >= 0) {
            close(m_listener);
        }
        if (!m_socket.empty()) {
            unlink(m_socket.c_str());
        }
    }
    const std::string& Problem() const { return m_problem; }

private:
    int m_listener = -1;
    pid_t m_pid = -1;
    std::string m_socket;
    std::string m_problem;
};

TEST(CardStorePcsc, DaemonWithoutReaderMeansNoReader) {
    struct stat info {};
    if (stat("/usr/sbin/pcscd", &info) != 0) {
        GTEST_SKIP() << "pcscd is not installed";
    }
    // pcscd records its PID in a fixed file; a running system daemon owns it.
    if (stat("/run/pcscd/pcscd.pid", &info) == 0) {
        GTEST_SKIP() << "a system pcscd is running (/run/pcscd/pcscd.pid exists)";
    }
    const PcscDaemon daemon(PrivateSocket());
    if (!daemon.Problem().empty()) {
        GTEST_SKIP() << "pcscd cannot be started here: " << daemon.Problem();
    }
    X509WinCardStore store;
    const Thrown thrown = Catch([&] { store.Open(); });
    EXPECT_EQ(ErrNoCardReader, thrown.code) << "pcscd answers, but lists no reader";
}

}  // namespace
