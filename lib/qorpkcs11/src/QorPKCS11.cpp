#include "QorPKCS11.h"

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "QorTextConv.h"

namespace QorPKCS11Lib {

static_assert(ObjectClass::Certificate == CKO_CERTIFICATE &&
                  ObjectClass::PrivateKey == CKO_PRIVATE_KEY,
              "object classes are CKO_* values");
static_assert(CertificateType::X509 == CKC_X_509 && CertificateType::Wtls == CKC_WTLS,
              "certificate types are CKC_* values");
static_assert(sizeof(CK_SLOT_ID) == sizeof(unsigned long) &&
                  sizeof(CK_OBJECT_HANDLE) == sizeof(unsigned long),
              "slot ids and handles travel as unsigned long");

namespace {

const struct {
    CK_RV code;
    const wchar_t* name;
} kReturnValueNames[] = {
    {CKR_CANCEL, L"CKR_CANCEL"},
    {CKR_HOST_MEMORY, L"CKR_HOST_MEMORY"},
    {CKR_SLOT_ID_INVALID, L"CKR_SLOT_ID_INVALID"},
    {CKR_GENERAL_ERROR, L"CKR_GENERAL_ERROR"},
    {CKR_FUNCTION_FAILED, L"CKR_FUNCTION_FAILED"},
    {CKR_ARGUMENTS_BAD, L"CKR_ARGUMENTS_BAD"},
    {CKR_ATTRIBUTE_SENSITIVE, L"CKR_ATTRIBUTE_SENSITIVE"},
    {CKR_ATTRIBUTE_TYPE_INVALID, L"CKR_ATTRIBUTE_TYPE_INVALID"},
    {CKR_DEVICE_ERROR, L"CKR_DEVICE_ERROR"},
    {CKR_DEVICE_MEMORY, L"CKR_DEVICE_MEMORY"},
    {CKR_DEVICE_REMOVED, L"CKR_DEVICE_REMOVED"},
    {CKR_FUNCTION_CANCELED, L"CKR_FUNCTION_CANCELED"},
    {CKR_FUNCTION_NOT_SUPPORTED, L"CKR_FUNCTION_NOT_SUPPORTED"},
    {CKR_OBJECT_HANDLE_INVALID, L"CKR_OBJECT_HANDLE_INVALID"},
    {CKR_OPERATION_ACTIVE, L"CKR_OPERATION_ACTIVE"},
    {CKR_PIN_INCORRECT, L"CKR_PIN_INCORRECT"},
    {CKR_PIN_LEN_RANGE, L"CKR_PIN_LEN_RANGE"},
    {CKR_PIN_EXPIRED, L"CKR_PIN_EXPIRED"},
    {CKR_PIN_LOCKED, L"CKR_PIN_LOCKED"},
    {CKR_SESSION_CLOSED, L"CKR_SESSION_CLOSED"},
    {CKR_SESSION_COUNT, L"CKR_SESSION_COUNT"},
    {CKR_SESSION_HANDLE_INVALID, L"CKR_SESSION_HANDLE_INVALID"},
    {CKR_TOKEN_NOT_PRESENT, L"CKR_TOKEN_NOT_PRESENT"},
    {CKR_TOKEN_NOT_RECOGNIZED, L"CKR_TOKEN_NOT_RECOGNIZED"},
    {CKR_USER_ALREADY_LOGGED_IN, L"CKR_USER_ALREADY_LOGGED_IN"},
    {CKR_USER_NOT_LOGGED_IN, L"CKR_USER_NOT_LOGGED_IN"},
    {CKR_USER_PIN_NOT_INITIALIZED, L"CKR_USER_PIN_NOT_INITIALIZED"},
    {CKR_USER_TYPE_INVALID, L"CKR_USER_TYPE_INVALID"},
    {CKR_BUFFER_TOO_SMALL, L"CKR_BUFFER_TOO_SMALL"},
    {CKR_CRYPTOKI_NOT_INITIALIZED, L"CKR_CRYPTOKI_NOT_INITIALIZED"},
    {CKR_CRYPTOKI_ALREADY_INITIALIZED, L"CKR_CRYPTOKI_ALREADY_INITIALIZED"},
    {CKR_LIBRARY_LOAD_FAILED, L"CKR_LIBRARY_LOAD_FAILED"},
};

CK_FUNCTION_LIST_PTR Functions(const PKCS11Module* module) {
    return static_cast<CK_FUNCTION_LIST_PTR>(module->GetFunctionList());
}

[[noreturn]] void ThrowCall(CK_RV rv, const wchar_t* call) {
    PKCS11Exception::Throw(static_cast<int>(rv), call);
}

// The conditions under which a slot's token simply cannot be read right now.
bool TokenUnavailable(CK_RV rv) {
    return rv == CKR_TOKEN_NOT_PRESENT || rv == CKR_TOKEN_NOT_RECOGNIZED ||
           rv == CKR_DEVICE_REMOVED || rv == CKR_DEVICE_ERROR || rv == CKR_SLOT_ID_INVALID;
}

// As ThrowCall, reporting an unreadable token as ErrTokenUnavailable.
[[noreturn]] void ThrowSlotCall(CK_RV rv, const wchar_t* call) {
    if (TokenUnavailable(rv)) {
        PKCS11Exception::Throw(PKCS11Exception::ErrTokenUnavailable, call);
    }
    ThrowCall(rv, call);
}

// A read-only session, closed when the object goes.
class Session {
public:
    Session(CK_FUNCTION_LIST_PTR functions, CK_SLOT_ID slotId) : m_functions(functions) {
        const CK_RV rv =
            functions->C_OpenSession(slotId, CKF_SERIAL_SESSION, nullptr, nullptr, &m_handle);
        if (rv != CKR_OK) {
            ThrowSlotCall(rv, L"C_OpenSession failed.");
        }
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { m_functions->C_CloseSession(m_handle); }

    CK_SESSION_HANDLE Handle() const { return m_handle; }

private:
    CK_FUNCTION_LIST_PTR m_functions;
    CK_SESSION_HANDLE m_handle = CK_INVALID_HANDLE;
};

// Ends a running object search on every path.
class SearchGuard {
public:
    SearchGuard(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session)
        : m_functions(functions), m_session(session) {}
    SearchGuard(const SearchGuard&) = delete;
    SearchGuard& operator=(const SearchGuard&) = delete;
    ~SearchGuard() { m_functions->C_FindObjectsFinal(m_session); }

private:
    CK_FUNCTION_LIST_PTR m_functions;
    CK_SESSION_HANDLE m_session;
};

enum class ReadResult { Present, Missing, ObjectGone };

// Reads one attribute. Missing covers attributes the object does not have
// or will not reveal (sensitive values).
ReadResult ReadAttribute(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session,
                         CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
                         std::vector<unsigned char>& value) {
    CK_ATTRIBUTE attribute = {type, nullptr, 0};
    CK_RV rv = functions->C_GetAttributeValue(session, object, &attribute, 1);
    if (rv == CKR_OBJECT_HANDLE_INVALID) {
        return ReadResult::ObjectGone;
    }
    if (rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID ||
        attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION) {
        return ReadResult::Missing;
    }
    if (rv != CKR_OK) {
        ThrowSlotCall(rv, L"C_GetAttributeValue failed.");
    }
    value.assign(attribute.ulValueLen, 0);
    attribute.pValue = value.data();
    rv = functions->C_GetAttributeValue(session, object, &attribute, 1);
    if (rv == CKR_OBJECT_HANDLE_INVALID) {
        return ReadResult::ObjectGone;
    }
    if (rv != CKR_OK) {
        ThrowSlotCall(rv, L"C_GetAttributeValue failed.");
    }
    value.resize(attribute.ulValueLen);
    return ReadResult::Present;
}

ReadResult ReadUlong(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session,
                     CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, CK_ULONG& value) {
    std::vector<unsigned char> bytes;
    const ReadResult result = ReadAttribute(functions, session, object, type, bytes);
    if (result != ReadResult::Present) {
        return result;
    }
    if (bytes.size() != sizeof(CK_ULONG)) {
        return ReadResult::Missing;
    }
    std::memcpy(&value, bytes.data(), sizeof(CK_ULONG));
    return ReadResult::Present;
}

Attribute<PKCS11Array<unsigned char> > BytesAttribute(const std::vector<unsigned char>& bytes,
                                                      ReadResult result) {
    if (result != ReadResult::Present) {
        return Attribute<PKCS11Array<unsigned char> >(PKCS11Array<unsigned char>());
    }
    return Attribute<PKCS11Array<unsigned char> >(
        PKCS11Array<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size())), true);
}

// Reads the attributes of one object; null when the object vanished meanwhile.
std::unique_ptr<Object> ReadObject(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE handle) {
    CK_ULONG objectClass = 0;
    ReadResult result = ReadUlong(functions, session, handle, CKA_CLASS, objectClass);
    if (result == ReadResult::ObjectGone) {
        return nullptr;
    }
    const Attribute<ObjectClass::Class> classAttribute =
        result == ReadResult::Present
            ? Attribute<ObjectClass::Class>(static_cast<ObjectClass::Class>(objectClass), true)
            : Attribute<ObjectClass::Class>(ObjectClass::Unknown);

    Attribute<CertificateType::Type> typeAttribute(CertificateType::Unknown);
    if (result == ReadResult::Present && objectClass == CKO_CERTIFICATE) {
        CK_ULONG certificateType = 0;
        result = ReadUlong(functions, session, handle, CKA_CERTIFICATE_TYPE, certificateType);
        if (result == ReadResult::ObjectGone) {
            return nullptr;
        }
        if (result == ReadResult::Present) {
            typeAttribute = Attribute<CertificateType::Type>(
                static_cast<CertificateType::Type>(certificateType), true);
        }
    }

    std::vector<unsigned char> id;
    const ReadResult idResult = ReadAttribute(functions, session, handle, CKA_ID, id);
    std::vector<unsigned char> value;
    const ReadResult valueResult = ReadAttribute(functions, session, handle, CKA_VALUE, value);
    if (idResult == ReadResult::ObjectGone || valueResult == ReadResult::ObjectGone) {
        return nullptr;
    }
    return std::unique_ptr<Object>(new Object(handle, classAttribute, typeAttribute,
                                              BytesAttribute(id, idResult),
                                              BytesAttribute(value, valueResult)));
}

}  // namespace

// ---------------------------------------------------------------------------
// PKCS11Exception

PKCS11Exception::PKCS11Exception(int code, const wchar_t* message)
    : qorstd::QorException(code, message) {}

PKCS11Exception::PKCS11Exception(const PKCS11Exception& other) : qorstd::QorException(other) {}

PKCS11Exception& PKCS11Exception::operator=(const PKCS11Exception& other) {
    if (this != &other) {
        Copy(other);
    }
    return *this;
}

PKCS11Exception::~PKCS11Exception() {}

qorstd::QorStringW PKCS11Exception::GetErrorDescription() const {
    const int code = GetErrorCode();
    if (code == ErrTokenUnavailable) {
        return qorstd::QorStringW(L"The token of the slot cannot be read.");
    }
    for (const auto& entry : kReturnValueNames) {
        if (static_cast<int>(entry.code) == code) {
            return qorstd::QorStringW(entry.name);
        }
    }
    wchar_t text[32];
    std::swprintf(text, sizeof(text) / sizeof(text[0]), L"CK_RV 0x%08X",
                  static_cast<unsigned int>(code));
    return qorstd::QorStringW(text);
}

qorstd::QorException* PKCS11Exception::Clone() const {
    return new PKCS11Exception(*this);
}

void PKCS11Exception::ReThrow() const {
    throw PKCS11Exception(*this);
}

void PKCS11Exception::Throw(int code, const wchar_t* message) {
    throw PKCS11Exception(code, message);
}

// ---------------------------------------------------------------------------
// Object

Object::Object(unsigned long handle, const Attribute<ObjectClass::Class>& objectClass,
               const Attribute<CertificateType::Type>& certificateType,
               const Attribute<PKCS11Array<unsigned char> >& id,
               const Attribute<PKCS11Array<unsigned char> >& value)
    : m_handle(handle),
      m_class(objectClass),
      m_certificateType(certificateType),
      m_id(id),
      m_value(value) {}

Object::~Object() {}

// ---------------------------------------------------------------------------
// Slot

Slot::Slot(PKCS11Module* module, unsigned long slotId)
    : m_module(module), m_slotId(slotId), m_loginSession(0), m_hasLoginSession(false) {}

Slot::~Slot() {
    CloseLoginSession();
}

PKCS11Vector<Object*> Slot::FindObjects(ObjectType type) {
    CK_FUNCTION_LIST_PTR functions = Functions(m_module);
    if (functions == nullptr) {
        ThrowCall(CKR_CRYPTOKI_NOT_INITIALIZED, L"The module is not initialised.");
    }
    if (type != otCertificates && type != otPublicObjects) {
        ThrowCall(CKR_ARGUMENTS_BAD, L"Unknown object type.");
    }
    Session session(functions, m_slotId);

    CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
    CK_ATTRIBUTE certificatesOnly = {CKA_CLASS, &certificateClass, sizeof(certificateClass)};
    const bool onlyCertificates = type == otCertificates;
    CK_RV rv = functions->C_FindObjectsInit(
        session.Handle(), onlyCertificates ? &certificatesOnly : nullptr, onlyCertificates ? 1 : 0);
    if (rv != CKR_OK) {
        ThrowSlotCall(rv, L"C_FindObjectsInit failed.");
    }
    std::vector<CK_OBJECT_HANDLE> handles;
    {
        SearchGuard search(functions, session.Handle());
        CK_OBJECT_HANDLE batch[32];
        for (;;) {
            CK_ULONG found = 0;
            rv = functions->C_FindObjects(session.Handle(), batch, sizeof(batch) / sizeof(batch[0]),
                                          &found);
            if (rv != CKR_OK) {
                ThrowSlotCall(rv, L"C_FindObjects failed.");
            }
            if (found == 0) {
                break;
            }
            handles.insert(handles.end(), batch, batch + found);
        }
    }

    PKCS11Vector<Object*> objects;
    try {
        for (CK_OBJECT_HANDLE handle : handles) {
            std::unique_ptr<Object> object = ReadObject(functions, session.Handle(), handle);
            if (object) {
                objects.Add(object.get());
                object.release();
            }
        }
    } catch (...) {
        FreeObjectList(objects);
        throw;
    }
    return objects;
}

void Slot::FreeObjectList(const PKCS11Vector<Object*>& objects) {
    for (unsigned int i = 0; i < objects.GetSize(); ++i) {
        delete objects.GetAt(i);
    }
}

void Slot::Login(const char* pin) {
    CK_FUNCTION_LIST_PTR functions = Functions(m_module);
    if (functions == nullptr) {
        ThrowCall(CKR_CRYPTOKI_NOT_INITIALIZED, L"The module is not initialised.");
    }
    if (pin == nullptr) {
        ThrowCall(CKR_ARGUMENTS_BAD, L"pin=NULL");
    }
    const bool openedHere = !m_hasLoginSession;
    if (openedHere) {
        CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
        const CK_RV rv =
            functions->C_OpenSession(m_slotId, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
        if (rv != CKR_OK) {
            ThrowSlotCall(rv, L"C_OpenSession failed.");
        }
        m_loginSession = session;
        m_hasLoginSession = true;
    }
    const CK_RV rv = functions->C_Login(m_loginSession, CKU_USER,
                                        reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(pin)),
                                        static_cast<CK_ULONG>(std::strlen(pin)));
    if (rv != CKR_OK && rv != CKR_USER_ALREADY_LOGGED_IN) {
        if (openedHere) {
            CloseLoginSession();
        }
        ThrowSlotCall(rv, L"C_Login failed.");
    }
}

void Slot::Logout() {
    CK_FUNCTION_LIST_PTR functions = Functions(m_module);
    if (functions == nullptr) {
        return;
    }
    CK_SESSION_HANDLE session = m_loginSession;
    bool temporary = false;
    if (!m_hasLoginSession) {
        const CK_RV rv =
            functions->C_OpenSession(m_slotId, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
        if (rv != CKR_OK) {
            if (TokenUnavailable(rv)) {
                return;
            }
            ThrowCall(rv, L"C_OpenSession failed.");
        }
        temporary = true;
    }
    const CK_RV rv = functions->C_Logout(session);
    if (temporary) {
        functions->C_CloseSession(session);
    } else {
        CloseLoginSession();
    }
    if (rv != CKR_OK && rv != CKR_USER_NOT_LOGGED_IN && rv != CKR_SESSION_HANDLE_INVALID &&
        rv != CKR_SESSION_CLOSED && !TokenUnavailable(rv)) {
        ThrowCall(rv, L"C_Logout failed.");
    }
}

void Slot::CloseLoginSession() {
    if (!m_hasLoginSession) {
        return;
    }
    m_hasLoginSession = false;
    CK_FUNCTION_LIST_PTR functions = Functions(m_module);
    if (functions != nullptr) {
        functions->C_CloseSession(m_loginSession);
    }
    m_loginSession = 0;
}

// ---------------------------------------------------------------------------
// PKCS11Module

PKCS11Module::PKCS11Module(const wchar_t* path)
    : m_path(path), m_library(nullptr), m_functions(nullptr), m_finalizeOnRelease(false) {}

PKCS11Module::~PKCS11Module() {
    try {
        Finalize();
    } catch (...) {
        // A failing C_Finalize leaves nothing more to release.
    }
}

void PKCS11Module::Initialize() {
    if (IsInitialized()) {
        return;
    }
    const qorstd::QorString path = qorstd::text::WideToNarrow(m_path.c_str(), false);
    if (path.empty()) {
        ThrowCall(CKR_ARGUMENTS_BAD, L"The module path is empty or cannot be converted.");
    }
    // RTLD_LOCAL: the module's symbols must not satisfy other libraries' lookups.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* reason = dlerror();
        const qorstd::QorStringW message = qorstd::text::NarrowToWide(
            reason != nullptr ? reason : "dlopen failed.", 0, qorstd::text::kCharsetProcess);
        ThrowCall(CKR_LIBRARY_LOAD_FAILED, message.c_str());
    }
    m_library = library;
    auto getFunctionList =
        reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
    if (getFunctionList == nullptr) {
        Unload();
        ThrowCall(CKR_LIBRARY_LOAD_FAILED, L"The module has no C_GetFunctionList.");
    }
    CK_FUNCTION_LIST_PTR functions = nullptr;
    CK_RV rv = getFunctionList(&functions);
    if (rv != CKR_OK || functions == nullptr) {
        Unload();
        ThrowCall(rv != CKR_OK ? rv : CKR_GENERAL_ERROR, L"C_GetFunctionList failed.");
    }
    CK_C_INITIALIZE_ARGS args;
    std::memset(&args, 0, sizeof(args));
    args.flags = CKF_OS_LOCKING_OK;
    rv = functions->C_Initialize(&args);
    // Another user in this process (e.g. the OpenSSL engine) initialised the
    // module first; it stays theirs to finalise.
    const bool initializedElsewhere = rv == CKR_CRYPTOKI_ALREADY_INITIALIZED;
    if (rv != CKR_OK && !initializedElsewhere) {
        Unload();
        ThrowCall(rv, L"C_Initialize failed.");
    }
    m_functions = functions;
    m_finalizeOnRelease = !initializedElsewhere;
}

void PKCS11Module::Finalize() {
    if (m_library == nullptr) {
        return;
    }
    ReleaseSlots();
    CK_RV rv = CKR_OK;
    CK_FUNCTION_LIST_PTR functions = Functions(this);
    if (functions != nullptr && m_finalizeOnRelease) {
        rv = functions->C_Finalize(nullptr);
    }
    Unload();
    if (rv != CKR_OK) {
        ThrowCall(rv, L"C_Finalize failed.");
    }
}

PKCS11Vector<Slot*> PKCS11Module::GetSlots(int tokenPresent, int tokenInitialized) {
    CK_FUNCTION_LIST_PTR functions = Functions(this);
    if (functions == nullptr) {
        ThrowCall(CKR_CRYPTOKI_NOT_INITIALIZED, L"The module is not initialised.");
    }
    const CK_BBOOL present = tokenPresent != 0 ? CK_TRUE : CK_FALSE;
    std::vector<CK_SLOT_ID> ids;
    // The slot count can change between the two calls (a reader plugged in).
    for (;;) {
        CK_ULONG count = 0;
        CK_RV rv = functions->C_GetSlotList(present, nullptr, &count);
        if (rv != CKR_OK) {
            ThrowCall(rv, L"C_GetSlotList failed.");
        }
        ids.assign(count, 0);
        rv = functions->C_GetSlotList(present, ids.data(), &count);
        if (rv == CKR_BUFFER_TOO_SMALL) {
            continue;
        }
        if (rv != CKR_OK) {
            ThrowCall(rv, L"C_GetSlotList failed.");
        }
        ids.resize(count);
        break;
    }

    PKCS11Vector<Slot*> slots;
    for (CK_SLOT_ID id : ids) {
        if (tokenInitialized != 0) {
            CK_TOKEN_INFO info;
            std::memset(&info, 0, sizeof(info));
            const CK_RV rv = functions->C_GetTokenInfo(id, &info);
            if (TokenUnavailable(rv)) {
                continue;
            }
            if (rv != CKR_OK) {
                ThrowCall(rv, L"C_GetTokenInfo failed.");
            }
            if ((info.flags & CKF_TOKEN_INITIALIZED) == 0) {
                continue;
            }
        }
        slots.Add(SlotFor(id));
    }
    return slots;
}

Slot* PKCS11Module::SlotFor(unsigned long slotId) {
    for (unsigned int i = 0; i < m_slots.GetSize(); ++i) {
        if (m_slots.GetAt(i)->GetSlotId() == slotId) {
            return m_slots.GetAt(i);
        }
    }
    Slot* slot = new Slot(this, slotId);
    try {
        m_slots.Add(slot);
    } catch (...) {
        delete slot;
        throw;
    }
    return slot;
}

void PKCS11Module::ReleaseSlots() {
    for (unsigned int i = 0; i < m_slots.GetSize(); ++i) {
        delete m_slots.GetAt(i);
    }
    m_slots.RemoveAll();
}

void PKCS11Module::Unload() {
    m_functions = nullptr;
    m_finalizeOnRelease = false;
    if (m_library != nullptr) {
        dlclose(m_library);
        m_library = nullptr;
    }
}

}  // namespace QorPKCS11Lib
