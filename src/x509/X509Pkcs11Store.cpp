#include "X509Pkcs11Store.h"

#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <string>

#include "CryptException.h"
#include "CryptKey.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "Pkcs11Key.h"
#include "Pkcs11Manager.h"

namespace TesseraLib {

namespace {

using QorPKCS11Lib::Object;
using QorPKCS11Lib::PKCS11Exception;
using QorPKCS11Lib::PKCS11Vector;
using QorPKCS11Lib::Slot;

const wchar_t kChannelName[] = L"X509Pkcs11Store";

// A slot's objects, given back to the slot however the walk over them ends.
class ObjectList {
public:
    explicit ObjectList(Slot* slot) : m_objects(slot->FindObjects(Slot::otPublicObjects)) {}
    ~ObjectList() { Slot::FreeObjectList(m_objects); }
    ObjectList(const ObjectList&) = delete;
    ObjectList& operator=(const ObjectList&) = delete;

    const PKCS11Vector<Object*>& Objects() const { return m_objects; }

private:
    PKCS11Vector<Object*> m_objects;
};

bool IsX509Certificate(const Object& object) {
    return object.GetClass().GetValue() == QorPKCS11Lib::ObjectClass::Certificate &&
           object.GetCertificateType().GetValue() == QorPKCS11Lib::CertificateType::X509;
}

X509Certificate ImportValue(const Object& object) {
    const qorstd::QorArray<unsigned char>& value = object.GetValue().GetValue();
    return X509Certificate(value.GetData(), static_cast<long>(value.GetSize()));
}

std::string KeyIdentifierOf(const Slot& slot, const Object& object) {
    const qorstd::QorArray<unsigned char>& id = object.GetId().GetValue();
    return pkcs11::KeyIdentifier(slot.GetSlotId(), id.GetData(), id.GetSize());
}

// Hands each slot with its objects to `visit`, in order. A slot whose token
// cannot be read now is skipped: another token may still be there.
template <class Log, class Visit>
void ForEachSlot(const Log& log, const PKCS11Vector<Slot*>& slots, Visit visit) {
    for (unsigned i = 0; i < slots.GetSize(); ++i) {
        Slot* slot = slots.GetAt(i);
        try {
            const ObjectList objects(slot);
            visit(slot, objects.Objects());
        } catch (const PKCS11Exception& e) {
            if (e.GetErrorCode() != PKCS11Exception::ErrTokenUnavailable) {
                throw;
            }
            TLOG_DEBUG(log, L"Slot %lx skipped: its token cannot be read.", slot->GetSlotId());
        }
    }
}

}  // namespace

X509Pkcs11Store::X509Pkcs11Store() : m_log(std::make_unique<LogChannel>(kChannelName)) {}

X509Pkcs11Store::X509Pkcs11Store(const X509Pkcs11Store& other)
    : X509Store(other),
      m_log(std::make_unique<LogChannel>(kChannelName)),
      m_slots(other.m_slots),
      m_loggedInSlots(other.m_loggedInSlots) {}

X509Pkcs11Store& X509Pkcs11Store::operator=(const X509Pkcs11Store& other) {
    if (this != &other) {
        X509Store::operator=(other);
        m_slots = other.m_slots;
        m_loggedInSlots = other.m_loggedInSlots;
    }
    return *this;
}

X509Pkcs11Store::~X509Pkcs11Store() {
    Close();
}

int X509Pkcs11Store::Open() {
    TLOG_INFO(m_log, L"Open");
    QorPKCS11Lib::PKCS11Module* module = Pkcs11Manager::GetInstance().GetModule();
    if (module == nullptr) {
        TLOG_DEBUG(m_log, L"Open: PKCS#11 is not initialised.");
        return 0;
    }
    Close();
    m_slots = module->GetSlots(1, 1);
    if (m_slots.GetSize() == 0) {
        Fail(m_log, L"Open: No token present.", ErrCardNotInserted);
    }
    TLOG_DEBUG(m_log, L"Open: %u slots with a token.", m_slots.GetSize());
    return 1;
}

void X509Pkcs11Store::Close() {
    m_slots.RemoveAll();
    m_loggedInSlots.RemoveAll();
}

void X509Pkcs11Store::LogoutAll() {
    for (unsigned i = 0; i < m_loggedInSlots.GetSize(); ++i) {
        m_loggedInSlots.GetAt(i)->Logout();
    }
    m_loggedInSlots.RemoveAll();
}

qorstd::QorVector<X509Certificate> X509Pkcs11Store::GetCertificates() const {
    qorstd::QorVector<X509Certificate> certificates;
    if (Pkcs11Manager::GetInstance().GetModule() == nullptr) {
        return certificates;
    }
    ForEachSlot(m_log, m_slots, [&certificates](Slot*, const PKCS11Vector<Object*>& objects) {
        for (unsigned i = 0; i < objects.GetSize(); ++i) {
            if (IsX509Certificate(*objects.GetAt(i))) {
                certificates.Add(ImportValue(*objects.GetAt(i)));
            }
        }
    });
    return certificates;
}

int X509Pkcs11Store::FindCertificate(X509Certificate& cert, int withPrivateKey) {
    TLOG_INFO(m_log, L"FindCertificate(Cert:%ls, WithPrivateKey:%d)",
              cert.GetSubjectStringX500(0).c_str(), withPrivateKey);
    int found = 0;
    ForEachSlot(m_log, m_slots, [&](Slot* slot, const PKCS11Vector<Object*>& objects) {
        for (unsigned i = 0; i < objects.GetSize(); ++i) {
            const Object& object = *objects.GetAt(i);
            if (!IsX509Certificate(object)) {
                continue;
            }
            X509Certificate copy = ImportValue(object);
            if (copy.Equals(cert) != 1) {
                continue;
            }
            found = 1;
            if (withPrivateKey == 0) {
                copy.SetPrivateKey(nullptr);
            } else {
                const std::string keyId = KeyIdentifierOf(*slot, object);
                EVP_PKEY* loaded = nullptr;
                if (FindPrivateKey(keyId.c_str(), &loaded) == 1) {
                    const EvpPkeyPtr key(loaded);
                    const std::unique_ptr<CryptKey> wrapped(CryptKey::CreateKey(key.get()));
                    if (!wrapped) {
                        Fail(m_log, L"FindCertificate: The key is neither RSA nor EC.",
                             ErrPrivateKeyRead);
                    }
                    copy.SetPrivateKey(wrapped.get());
                    m_loggedInSlots.Add(slot);
                }
            }
            cert = copy;
            return;
        }
    });
    return found;
}

qorstd::QorString X509Pkcs11Store::GetKeyIdentifier(const X509Certificate& cert) const {
    std::string keyId;
    ForEachSlot(m_log, m_slots, [&](Slot* slot, const PKCS11Vector<Object*>& objects) {
        for (unsigned i = 0; i < objects.GetSize(); ++i) {
            const Object& object = *objects.GetAt(i);
            if (IsX509Certificate(object) && ImportValue(object).Equals(cert) == 1) {
                keyId = KeyIdentifierOf(*slot, object);
                return;
            }
        }
    });
    return qorstd::QorString(keyId.c_str());
}

int X509Pkcs11Store::FindPrivateKey(const char* keyId, evp_pkey_st** key) const {
    TLOG_DEBUG(m_log, L"FindPrivateKey(KeyId:%hs)", keyId != nullptr ? keyId : "");
    Pkcs11Manager& manager = Pkcs11Manager::GetInstance();
    const EnginePtr engine(manager.GetEngine());
    if (!engine) {
        Fail(m_log, L"FindPrivateKey: Cannot get engine.", ErrInternal, L"Cannot get engine.");
    }
    ERR_clear_error();
    EvpPkeyPtr loaded = pkcs11::LoadPrivateKey(engine.get(), keyId, manager.GetEnginePinCb());
    if (!loaded) {
        const unsigned long error = ERR_get_error();
        ERR_clear_error();
        TLOG_ERROR(m_log, L"FindPrivateKey: ENGINE_load_private_key() failed (0x%08lx).", error);
        Fail(pkcs11::KeyLoadFailure(error));
    }
    *key = loaded.release();
    return 1;
}

}  // namespace TesseraLib
