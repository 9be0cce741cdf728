// PKCS#11 module wrapper: loads a module, lists its slots and reads the
// objects of a slot's token.
//
// The header does not include the PKCS#11 headers: slot ids and object
// handles are CK_ULONG values (unsigned long), and the enumerations below
// carry the CKO_* and CKC_* values of the standard.
//
// Ownership at a glance:
//   - PKCS11Module owns its Slot objects. GetSlots hands out pointers to them;
//     the same slot id always yields the same Slot object, so the pointers stay
//     valid until Finalize() or the module's destruction, across later calls
//     of GetSlots.
//   - Slot::FindObjects returns heap Object copies the caller owns and gives
//     back with Slot::FreeObjectList.
//
// Errors are PKCS11Exception; see its comment for the codes.
#pragma once

#include "QorArray.h"
#include "QorException.h"
#include "QorVector.h"

#define QORPKCS11_API __attribute__((visibility("default")))

namespace QorPKCS11Lib {

// A vector of the qorstd family (same growth and ownership rules): elements
// are kept in insertion order; pointer elements are never deleted by it.
template <class T>
class QORPKCS11_API PKCS11Vector : public qorstd::QorVector<T> {
public:
    PKCS11Vector() {}
    PKCS11Vector(const PKCS11Vector& other) : qorstd::QorVector<T>(other) {}
    PKCS11Vector& operator=(const PKCS11Vector& other) {
        qorstd::QorVector<T>::operator=(other);
        return *this;
    }
    ~PKCS11Vector() override {}
};

template <class T>
class PKCS11Array;

// An owned byte array (attribute values such as CKA_ID and CKA_VALUE).
template <>
class QORPKCS11_API PKCS11Array<unsigned char> : public qorstd::QorArray<unsigned char> {
public:
    PKCS11Array() {}
    PKCS11Array(const unsigned char* data, unsigned int length)
        : qorstd::QorArray<unsigned char>(data, length) {}
    PKCS11Array(const PKCS11Array& other) : qorstd::QorArray<unsigned char>(other) {}
    PKCS11Array& operator=(const PKCS11Array& other) {
        qorstd::QorArray<unsigned char>::operator=(other);
        return *this;
    }
    ~PKCS11Array() override {}
};

// Thrown by every operation of the wrapper. The code is
//   - the CK_RV of the PKCS#11 call that failed (CKR_PIN_INCORRECT = 0xA0,
//     CKR_ARGUMENTS_BAD = 7, ...; vendor values above 0x7FFFFFFF come out
//     negative), including for conditions the wrapper detects itself:
//       CKR_LIBRARY_LOAD_FAILED (0x1C2)      the module cannot be loaded or
//                                            has no C_GetFunctionList
//       CKR_ARGUMENTS_BAD (7)                empty or unconvertible module path
//       CKR_CRYPTOKI_NOT_INITIALIZED (0x190) the module is not initialised
//   - or ErrTokenUnavailable (545): the token of this slot cannot be read now
//     (CKR_TOKEN_NOT_PRESENT, CKR_TOKEN_NOT_RECOGNIZED, CKR_DEVICE_REMOVED,
//     CKR_DEVICE_ERROR or CKR_SLOT_ID_INVALID while a session is opened or
//     objects are read). Callers walking several slots skip that slot.
class QORPKCS11_API PKCS11Exception : public qorstd::QorException {
public:
    enum { ErrTokenUnavailable = 545 };

    PKCS11Exception(int code, const wchar_t* message);
    PKCS11Exception(const PKCS11Exception& other);
    PKCS11Exception& operator=(const PKCS11Exception& other);
    ~PKCS11Exception() override;

    // The code's name, e.g. "CKR_PIN_INCORRECT", or its value in hexadecimal.
    qorstd::QorStringW GetErrorDescription() const override;
    qorstd::QorException* Clone() const override;
    [[noreturn]] void ReThrow() const override;

    [[noreturn]] static void Throw(int code, const wchar_t* message);
};

// A value read from a token, or "not present" when the object has no such
// attribute or does not reveal it (GetValue then answers the default given
// at construction).
template <class T>
class QORPKCS11_API Attribute {
public:
    explicit Attribute(const T& missing) : m_present(false), m_value(missing) {}
    Attribute(const T& value, bool present) : m_present(present), m_value(value) {}

    const T& GetValue() const { return m_value; }
    bool IsPresent() const { return m_present; }

private:
    bool m_present;
    T m_value;
};

class QORPKCS11_API ObjectClass {
public:
    // CKO_* values; a class the object does not reveal reads as Unknown.
    enum Class : unsigned long {
        Data = 0,
        Certificate = 1,
        PublicKey = 2,
        PrivateKey = 3,
        SecretKey = 4,
        HwFeature = 5,
        DomainParameters = 6,
        Mechanism = 7,
        OtpKey = 8,
        Unknown = ~0ul
    };
};

class QORPKCS11_API CertificateType {
public:
    // CKC_* values. Objects that are not certificates read as Unknown, so
    // that a test for X509 never matches them.
    enum Type : unsigned long { X509 = 0, X509AttrCert = 1, Wtls = 2, Unknown = ~0ul };
};

// One token object with the attributes read when it was found.
class QORPKCS11_API Object {
public:
    Object(unsigned long handle, const Attribute<ObjectClass::Class>& objectClass,
           const Attribute<CertificateType::Type>& certificateType,
           const Attribute<PKCS11Array<unsigned char> >& id,
           const Attribute<PKCS11Array<unsigned char> >& value);
    virtual ~Object();

    // The object handle, valid within the module's current initialisation.
    unsigned long GetHandle() const { return m_handle; }
    const Attribute<ObjectClass::Class>& GetClass() const { return m_class; }
    const Attribute<CertificateType::Type>& GetCertificateType() const { return m_certificateType; }
    // CKA_ID.
    const Attribute<PKCS11Array<unsigned char> >& GetId() const { return m_id; }
    // CKA_VALUE (the DER of a certificate; absent for keys that hide it).
    const Attribute<PKCS11Array<unsigned char> >& GetValue() const { return m_value; }

private:
    unsigned long m_handle;
    Attribute<ObjectClass::Class> m_class;
    Attribute<CertificateType::Type> m_certificateType;
    Attribute<PKCS11Array<unsigned char> > m_id;
    Attribute<PKCS11Array<unsigned char> > m_value;
};

class PKCS11Module;

// A slot of a module. Slot objects belong to their PKCS11Module.
class QORPKCS11_API Slot {
public:
    enum ObjectType {
        // The certificate objects visible without login.
        otCertificates = 1,
        // Every object visible without login (certificates among them).
        otPublicObjects = 2
    };

    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
    virtual ~Slot();

    unsigned long GetSlotId() const { return m_slotId; }

    // The objects of the slot's token in the token's order; the caller frees
    // them with FreeObjectList.
    PKCS11Vector<Object*> FindObjects(ObjectType type);
    // Deletes every object of the list; the list's pointers dangle afterwards.
    static void FreeObjectList(const PKCS11Vector<Object*>& objects);

    // Logs the user in with `pin`. The slot keeps a session open until
    // Logout, because closing a token's last session ends its login. A user
    // already logged in (also by another user of the module in this process,
    // such as the OpenSSL engine) is not an error.
    void Login(const char* pin);
    // Logs the token out for the whole process (every session of the module,
    // the engine's included) and closes the session Login kept. A token that
    // is not logged in or cannot be reached is left as it is without error.
    void Logout();

private:
    friend class PKCS11Module;
    Slot(PKCS11Module* module, unsigned long slotId);
    // Closes the session kept for the login, if any.
    void CloseLoginSession();

    PKCS11Module* m_module;
    unsigned long m_slotId;
    unsigned long m_loginSession;
    bool m_hasLoginSession;
};

// A PKCS#11 module (shared library). Not copyable: it owns the loaded module
// and the Slot objects handed out.
class QORPKCS11_API PKCS11Module {
public:
    explicit PKCS11Module(const wchar_t* path);
    PKCS11Module(const PKCS11Module&) = delete;
    PKCS11Module& operator=(const PKCS11Module&) = delete;
    // Finalises the module when that was not done, swallowing errors.
    virtual ~PKCS11Module();

    // Loads the module and initialises it for OS locking. A module that
    // another part of the process initialised already is used as it is and
    // is then not finalised by Finalize. Nothing happens when this object is
    // initialised already.
    void Initialize();
    // Deletes the Slot objects, finalises the module (when Initialize did
    // initialise it) and unloads it. The object is left uninitialised even
    // when finalising fails; the failure is thrown afterwards.
    void Finalize();
    bool IsInitialized() const { return m_functions != nullptr; }

    // Slots in the module's order: with `tokenPresent` nonzero only slots
    // holding a token, with `tokenInitialized` nonzero only those whose token
    // is initialised (slots whose token cannot be read are left out).
    PKCS11Vector<Slot*> GetSlots(int tokenPresent, int tokenInitialized);

    // The CK_FUNCTION_LIST of the initialised module (null before Initialize).
    void* GetFunctionList() const { return m_functions; }

private:
    Slot* SlotFor(unsigned long slotId);
    void ReleaseSlots();
    void Unload();

    qorstd::QorStringW m_path;
    void* m_library;
    void* m_functions;
    bool m_finalizeOnRelease;
    PKCS11Vector<Slot*> m_slots;
};

}  // namespace QorPKCS11Lib
