#!/usr/bin/env bash
# Checks the dynamic symbol table of libtessera.so: the seven C functions and
# the public classes are exported, internal helpers are not.
set -euo pipefail
lib=$1
symbols=$(nm -D --defined-only "$lib" | awk '{print $3}')
demangled=$(nm -DC --defined-only "$lib" | cut -d' ' -f3-)
fail=0

for fn in Tessera_Initialize Tessera_Uninitialize Tessera_InitializeLogging \
          Tessera_UnInitializeLogging Tessera_InitializePkcs11 Tessera_UninitializePkcs11 \
          Tessera_GetVersionString; do
    # C linkage: the plain name, not a mangled one.
    if ! grep -qx "$fn" <<<"$symbols"; then
        echo "missing C function: $fn"; fail=1
    fi
done

# Type information must be visible so that callers can catch by type.
for ti in "typeinfo for TesseraLib::CryptException" \
          "typeinfo for TesseraLib::TimeStampException" \
          "typeinfo for TesseraLib::X509CertificateValidationException" \
          "typeinfo for TesseraLib::QorExceptionWrapper<std::exception>" \
          "typeinfo for qorstd::QorException" \
          "typeinfo for qorstd::StdLibException" \
          "typeinfo for QorTsp2Lib::TspException" \
          "typeinfo for QorOcsp2Lib::OcspException" \
          "typeinfo for TesseraLib::TimeStampOcspException" \
          "typeinfo for TesseraLib::QorExceptionWrapper<QorOcsp2Lib::OcspException>" \
          "typeinfo for QorPKCS11Lib::PKCS11Exception" \
          "TesseraLib::Pkcs11Manager::GetInstance()" \
          "typeinfo for TesseraLib::X509Certificate" \
          "typeinfo for TesseraLib::X509MemoryStore" \
          "typeinfo for TesseraLib::X509WinStore" \
          "typeinfo for TesseraLib::X509Pkcs11Store" \
          "typeinfo for TesseraLib::X509WinCardStore" \
          "typeinfo for TesseraLib::CardProvider" \
          "TesseraLib::SmartCardServices::RegisterProvider(qorstd::QorStringW const&, unsigned long, TesseraLib::CardProvider*)" \
          "typeinfo for TesseraLib::X509OcspClientOnline" \
          "typeinfo for TesseraLib::TimeStampValidationReport" \
          "typeinfo for TesseraLib::SignatureWithTimeValidationProcessReport" \
          "typeinfo for TesseraLib::ValidatorCades" \
          "typeinfo for TesseraLib::ValidationDataStore" \
          "qorstd::QorVector<TesseraLib::ValidationDataPOEItem>::Add(TesseraLib::ValidationDataPOEItem const&)" \
          "TesseraLib::ValidationBlockReport::cptReportSubStatusStrings" \
          "TesseraLib::ValidationProcess::cptSignatureStandardStrings" \
          "TesseraLib::QorExceptionStore::ReThrow() const" \
          "qorstd::QorString::icompare(char const*) const" \
          "qorstd::QorArray<unsigned char>::Append(unsigned char const*, unsigned int)"; do
    if ! grep -qxF "$ti" <<<"$demangled"; then
        echo "missing export: $ti"; fail=1
    fi
done

# Internal pieces stay hidden.
for hidden in "TesseraLib::LogChannel" "TesseraLib::logging::" "TesseraLib::objects::" \
              "TesseraLib::library::" "TesseraLib::cardreaders::" "TesseraLib::WinCard" \
              "qorstd::text::" "qorlog::" "qorcurl::" "qortime::" "qorssl::"; do
    if grep -qF "$hidden" <<<"$demangled"; then
        echo "internal symbol exported: $(grep -F "$hidden" <<<"$demangled" | head -n 3)"; fail=1
    fi
done

# Nothing else: every export belongs to our namespaces or is one of the C
# entry points of Tessera and the libraries linked into it.
stray=$(grep -vE 'qorstd::|TesseraLib::|QorTsp2Lib::|QorOcsp2Lib::|QorGetOneCrlLib::|QorPKCS11Lib::' <<<"$demangled" \
        | grep -vE '^(Tessera|QorTsp2|QorOcsp2|QorGetOneCrl)_[A-Za-z0-9]+$' || true)
if [ -n "$stray" ]; then
    echo "unexpected exports:"; head -n 10 <<<"$stray"; fail=1
fi

if [ "$fail" -ne 0 ]; then
    exit 1
fi
echo "exports ok: $(wc -l <<<"$symbols") symbols"
