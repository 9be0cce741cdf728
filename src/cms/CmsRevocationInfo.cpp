#include "cms/CmsRevocationInfo.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace TesseraLib {
namespace cms {

namespace {

constexpr unsigned char kTagInteger = 0x02;
constexpr unsigned char kTagOctetString = 0x04;
constexpr unsigned char kTagOid = 0x06;
constexpr unsigned char kTagSequence = 0x30;
constexpr unsigned char kTagSet = 0x31;
constexpr unsigned char kTagContext0 = 0xA0;  // [0] constructed
constexpr unsigned char kTagContext1 = 0xA1;  // [1] constructed
constexpr unsigned char kTagContext2 = 0xA2;  // [2] constructed

// Content bytes of the OIDs the walker compares with.
constexpr unsigned char kOidSignedData[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
constexpr unsigned char kOidOcspResponse[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x10, 0x02};
constexpr unsigned char kOidOcspBasic[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x01, 0x01};

// One tag-length-value. Multi-byte tags keep only their first octet in
// `tag`, which never equals one of the single-octet tags above.
struct Tlv {
    unsigned char tag = 0;
    const unsigned char* start = nullptr;
    const unsigned char* content = nullptr;
    std::size_t contentLength = 0;
    std::size_t totalLength = 0;
};

// Reads the element at `*cursor` and moves past it. Definite lengths only
// (the walker reads DER) of at most four length octets.
bool ReadTlv(const unsigned char** cursor, const unsigned char* end, Tlv* tlv) {
    const unsigned char* p = *cursor;
    if (p >= end) {
        return false;
    }
    tlv->start = p;
    tlv->tag = *p++;
    if ((tlv->tag & 0x1F) == 0x1F) {
        // High tag number: continuation octets have the top bit set.
        do {
            if (p >= end) {
                return false;
            }
        } while ((*p++ & 0x80) != 0);
    }
    if (p >= end) {
        return false;
    }
    std::size_t length = *p++;
    if ((length & 0x80) != 0) {
        const std::size_t octets = length & 0x7F;
        if (octets == 0 || octets > 4 || static_cast<std::size_t>(end - p) < octets) {
            return false;
        }
        length = 0;
        for (std::size_t i = 0; i < octets; ++i) {
            length = (length << 8) | *p++;
        }
    }
    if (static_cast<std::size_t>(end - p) < length) {
        return false;
    }
    tlv->content = p;
    tlv->contentLength = length;
    tlv->totalLength = static_cast<std::size_t>(p + length - tlv->start);
    *cursor = p + length;
    return true;
}

bool ReadExpected(const unsigned char** cursor, const unsigned char* end, unsigned char tag,
                  Tlv* tlv) {
    return ReadTlv(cursor, end, tlv) && tlv->tag == tag;
}

// A non-negative INTEGER that fits an unsigned long.
bool ReadVersion(const Tlv& tlv, unsigned long* value) {
    if (tlv.tag != kTagInteger || tlv.contentLength == 0 || (tlv.content[0] & 0x80) != 0) {
        return false;
    }
    std::size_t skip = 0;
    while (skip + 1 < tlv.contentLength && tlv.content[skip] == 0) {
        ++skip;
    }
    if (tlv.contentLength - skip > sizeof(unsigned long)) {
        return false;
    }
    unsigned long result = 0;
    for (std::size_t i = skip; i < tlv.contentLength; ++i) {
        result = (result << 8) | tlv.content[i];
    }
    *value = result;
    return true;
}

bool IsOid(const Tlv& tlv, const unsigned char* oid, std::size_t length) {
    return tlv.tag == kTagOid && tlv.contentLength == length &&
           std::memcmp(tlv.content, oid, length) == 0;
}

// Every element of the SET or SEQUENCE content of `outer`, whole.
bool SplitElements(const Tlv& outer, std::vector<DerSpan>* elements) {
    const unsigned char* cursor = outer.content;
    const unsigned char* end = outer.content + outer.contentLength;
    while (cursor < end) {
        Tlv element;
        if (!ReadTlv(&cursor, end, &element)) {
            return false;
        }
        elements->push_back(DerSpan{element.start, element.totalLength});
    }
    return true;
}

// A DER element of `tag` around `content`.
std::vector<unsigned char> Wrap(unsigned char tag, const std::vector<unsigned char>& content) {
    std::vector<unsigned char> out = {tag};
    const std::size_t length = content.size();
    if (length < 0x80) {
        out.push_back(static_cast<unsigned char>(length));
    } else {
        std::vector<unsigned char> octets;
        for (std::size_t rest = length; rest != 0; rest >>= 8) {
            octets.insert(octets.begin(), static_cast<unsigned char>(rest & 0xFF));
        }
        out.push_back(static_cast<unsigned char>(0x80 | octets.size()));
        out.insert(out.end(), octets.begin(), octets.end());
    }
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

std::vector<unsigned char> Join(std::vector<unsigned char> first,
                                const std::vector<unsigned char>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace

bool ReadSignedDataLayout(const unsigned char* der, std::size_t length, SignedDataLayout* layout) {
    if (der == nullptr || layout == nullptr) {
        return false;
    }
    *layout = SignedDataLayout();
    const unsigned char* cursor = der;
    const unsigned char* end = der + length;

    // ContentInfo ::= SEQUENCE { contentType, [0] EXPLICIT content }
    Tlv contentInfo;
    if (!ReadExpected(&cursor, end, kTagSequence, &contentInfo)) {
        return false;
    }
    cursor = contentInfo.content;
    end = contentInfo.content + contentInfo.contentLength;
    Tlv type;
    Tlv explicitContent;
    if (!ReadTlv(&cursor, end, &type) || !IsOid(type, kOidSignedData, sizeof(kOidSignedData)) ||
        !ReadExpected(&cursor, end, kTagContext0, &explicitContent)) {
        return false;
    }

    // SignedData ::= SEQUENCE { version, digestAlgorithms SET, encapContentInfo,
    //   certificates [0] IMPLICIT OPTIONAL, crls [1] IMPLICIT OPTIONAL, signerInfos SET }
    cursor = explicitContent.content;
    end = explicitContent.content + explicitContent.contentLength;
    Tlv signedData;
    if (!ReadExpected(&cursor, end, kTagSequence, &signedData)) {
        return false;
    }
    cursor = signedData.content;
    end = signedData.content + signedData.contentLength;
    Tlv element;
    if (!ReadTlv(&cursor, end, &element) || !ReadVersion(element, &layout->version)) {
        return false;
    }
    Tlv encapsulated;
    if (!ReadExpected(&cursor, end, kTagSet, &element)) {
        return false;
    }
    layout->digestAlgorithms = DerSpan{element.start, element.totalLength};
    if (!ReadExpected(&cursor, end, kTagSequence, &encapsulated) ||
        !ReadTlv(&cursor, end, &element)) {
        return false;
    }
    layout->encapContentInfo = DerSpan{encapsulated.start, encapsulated.totalLength};
    {
        const unsigned char* at = encapsulated.content;
        Tlv type;
        if (!ReadTlv(&at, encapsulated.content + encapsulated.contentLength, &type) ||
            type.tag != kTagOid) {
            return false;
        }
        layout->eContentType = DerSpan{type.start, type.totalLength};
    }
    if (element.tag == kTagContext0) {
        if (!SplitElements(element, &layout->certificates) || !ReadTlv(&cursor, end, &element)) {
            return false;
        }
    }
    if (element.tag == kTagContext1) {
        if (!SplitElements(element, &layout->revocationInfos) || !ReadTlv(&cursor, end, &element)) {
            return false;
        }
    }
    if (element.tag != kTagSet || !SplitElements(element, &layout->signerInfos)) {
        return false;
    }
    layout->signerInfoSet = DerSpan{element.start, element.totalLength};
    // SignerInfo ::= SEQUENCE { version, sid, digestAlgorithm,
    //   signedAttrs [0] IMPLICIT OPTIONAL, signatureAlgorithm, signature OCTET STRING, ... }
    for (const DerSpan& signer : layout->signerInfos) {
        const unsigned char* at = signer.data;
        const unsigned char* stop = signer.data + signer.length;
        Tlv sequence;
        Tlv field;
        unsigned long version = 0;
        SignerFields fields;
        const auto span = [](const Tlv& tlv) { return DerSpan{tlv.start, tlv.totalLength}; };
        if (!ReadExpected(&at, stop, kTagSequence, &sequence)) {
            return false;
        }
        at = sequence.content;
        stop = sequence.content + sequence.contentLength;
        if (!ReadTlv(&at, stop, &field) || !ReadVersion(field, &version)) {
            return false;
        }
        fields.version = span(field);
        if (!ReadTlv(&at, stop, &field)) {
            return false;
        }
        fields.sid = span(field);
        if (!ReadTlv(&at, stop, &field)) {
            return false;
        }
        fields.digestAlgorithm = span(field);
        if (!ReadTlv(&at, stop, &field)) {
            return false;
        }
        if (field.tag == kTagContext0) {
            fields.signedAttrs = span(field);
            if (!ReadTlv(&at, stop, &field)) {
                return false;
            }
        }
        fields.signatureAlgorithm = span(field);
        if (!ReadExpected(&at, stop, kTagOctetString, &field)) {
            return false;
        }
        fields.signature = span(field);
        layout->signerFields.push_back(fields);
        layout->signerVersions.push_back(version);
        layout->signerSignatures.push_back(DerSpan{field.content, field.contentLength});
    }
    return true;
}

std::vector<unsigned char> RebuildSignedData(
    const SignedDataLayout& layout, unsigned long version,
    std::vector<std::vector<unsigned char>> certificates,
    std::vector<std::vector<unsigned char>> revocationInfos) {
    // DER orders a SET OF by the elements' encodings, the way OpenSSL does
    // when it writes the message again: a later re-encoding keeps the bytes.
    const auto derOrder = [](const std::vector<unsigned char>& a,
                             const std::vector<unsigned char>& b) {
        const int cmp = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
        return cmp != 0 ? cmp < 0 : a.size() < b.size();
    };
    const auto set = [&](unsigned char tag, std::vector<std::vector<unsigned char>>& items) {
        std::sort(items.begin(), items.end(), derOrder);
        std::vector<unsigned char> content;
        for (const std::vector<unsigned char>& item : items) {
            content.insert(content.end(), item.begin(), item.end());
        }
        return items.empty() ? std::vector<unsigned char>() : Wrap(tag, content);
    };
    const auto copy = [](const DerSpan& span) {
        return std::vector<unsigned char>(span.data, span.data + span.length);
    };
    std::vector<unsigned char> versionDer;
    for (unsigned long rest = version; rest != 0; rest >>= 8) {
        versionDer.insert(versionDer.begin(), static_cast<unsigned char>(rest & 0xFF));
    }
    if (versionDer.empty() || (versionDer.front() & 0x80) != 0) {
        versionDer.insert(versionDer.begin(), 0);
    }
    std::vector<unsigned char> body = Wrap(kTagInteger, versionDer);
    for (const std::vector<unsigned char>& part :
         {copy(layout.digestAlgorithms), copy(layout.encapContentInfo),
          set(kTagContext0, certificates), set(kTagContext1, revocationInfos),
          copy(layout.signerInfoSet)}) {
        body.insert(body.end(), part.begin(), part.end());
    }
    std::vector<unsigned char> type = {kTagOid, sizeof(kOidSignedData)};
    type.insert(type.end(), kOidSignedData, kOidSignedData + sizeof(kOidSignedData));
    return Wrap(kTagSequence, Join(type, Wrap(kTagContext0, Wrap(kTagSequence, body))));
}

std::vector<unsigned char> OcspRevocationChoice(const std::vector<unsigned char>& response) {
    // other [1] IMPLICIT OtherRevocationInfoFormat { id-ri-ocsp-response, OCSPResponse }
    std::vector<unsigned char> format = {kTagOid, sizeof(kOidOcspResponse)};
    format.insert(format.end(), kOidOcspResponse, kOidOcspResponse + sizeof(kOidOcspResponse));
    return Wrap(kTagContext1, Join(format, response));
}

std::vector<OcspChoice> OcspChoicesOf(const SignedDataLayout& layout) {
    std::vector<OcspChoice> responses;
    for (const DerSpan& choice : layout.revocationInfos) {
        // other [1] IMPLICIT OtherRevocationInfoFormat ::= SEQUENCE {
        //   otherRevInfoFormat OBJECT IDENTIFIER, otherRevInfo ANY }
        const unsigned char* cursor = choice.data;
        const unsigned char* end = choice.data + choice.length;
        Tlv other;
        if (!ReadExpected(&cursor, end, kTagContext1, &other)) {
            continue;
        }
        cursor = other.content;
        end = other.content + other.contentLength;
        Tlv format;
        Tlv value;
        if (!ReadTlv(&cursor, end, &format) || !ReadExpected(&cursor, end, kTagSequence, &value)) {
            continue;
        }
        if (!IsOid(format, kOidOcspResponse, sizeof(kOidOcspResponse)) &&
            !IsOid(format, kOidOcspBasic, sizeof(kOidOcspBasic))) {
            continue;
        }
        // An OCSPResponse opens with its status (ENUMERATED); a bare
        // BasicOCSPResponse, which some signers put under either format,
        // with its tbsResponseData (SEQUENCE).
        std::vector<unsigned char> response(value.start, value.start + value.totalLength);
        const unsigned char* first = value.content;
        Tlv head;
        if (ReadTlv(&first, value.content + value.contentLength, &head) &&
            head.tag == kTagSequence) {
            // OCSPResponse ::= SEQUENCE { responseStatus ENUMERATED successful,
            //   responseBytes [0] EXPLICIT SEQUENCE { id-pkix-ocsp-basic, OCTET STRING } }
            std::vector<unsigned char> oid = {kTagOid, sizeof(kOidOcspBasic)};
            oid.insert(oid.end(), kOidOcspBasic, kOidOcspBasic + sizeof(kOidOcspBasic));
            const std::vector<unsigned char> bytes =
                Wrap(kTagSequence, Join(oid, Wrap(kTagOctetString, response)));
            const std::vector<unsigned char> status = {0x0A, 0x01, 0x00};
            response = Wrap(kTagSequence, Join(status, Wrap(kTagContext0, bytes)));
        }
        responses.push_back(OcspChoice{std::move(response), choice});
    }
    return responses;
}

std::vector<std::vector<unsigned char>> AttributeCertsOf(const SignedDataLayout& layout) {
    std::vector<std::vector<unsigned char>> certs;
    for (const DerSpan& choice : layout.certificates) {
        // v1AttrCert [1] IMPLICIT, v2AttrCert [2] IMPLICIT: both SEQUENCEs.
        if (choice.length == 0 ||
            (choice.data[0] != kTagContext1 && choice.data[0] != kTagContext2)) {
            continue;
        }
        std::vector<unsigned char> der(choice.data, choice.data + choice.length);
        der[0] = kTagSequence;
        certs.push_back(std::move(der));
    }
    return certs;
}

}  // namespace cms
}  // namespace TesseraLib
