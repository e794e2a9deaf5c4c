// A certificate of its own, and a client that speaks TLS.
#pragma once

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include "WebClient.h"

/// Writes a new key and a certificate that it vouches for itself.
inline void ZTMakeCertificate(const std::string& acrName, const std::string& acrCertificate,
                              const std::string& acrKey) {
    gnutls_x509_privkey_t lKey;
    gnutls_x509_crt_t lCertificate;
    gnutls_x509_privkey_init(&lKey);
    gnutls_x509_crt_init(&lCertificate);
    gnutls_x509_privkey_generate(lKey, GNUTLS_PK_ECDSA, GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0);
    const std::string lDn = "CN=" + acrName;
    gnutls_x509_crt_set_version(lCertificate, 3);
    gnutls_x509_crt_set_serial(lCertificate, "\1", 1);
    gnutls_x509_crt_set_activation_time(lCertificate, time(nullptr) - 3600);
    gnutls_x509_crt_set_expiration_time(lCertificate, time(nullptr) + 86400);
    gnutls_x509_crt_set_dn(lCertificate, lDn.c_str(), nullptr);
    gnutls_x509_crt_set_key(lCertificate, lKey);
    EXPECT_EQ(gnutls_x509_crt_sign2(lCertificate, lCertificate, lKey, GNUTLS_DIG_SHA256, 0), 0);
    gnutls_datum_t lText{};
    EXPECT_EQ(gnutls_x509_crt_export2(lCertificate, GNUTLS_X509_FMT_PEM, &lText), 0);
    writeFile(acrCertificate, {reinterpret_cast<char*>(lText.data), lText.size});
    gnutls_free(lText.data);
    EXPECT_EQ(gnutls_x509_privkey_export2(lKey, GNUTLS_X509_FMT_PEM, &lText), 0);
    writeFile(acrKey, {reinterpret_cast<char*>(lText.data), lText.size});
    gnutls_free(lText.data);
    gnutls_x509_crt_deinit(lCertificate);
    gnutls_x509_privkey_deinit(lKey);
}

/// Believes any certificate, and says whose it was.
class ZTCWebTlsClient : public ZTCWebClient {
  public:
    explicit ZTCWebTlsClient(unsigned int aPort) : ZTCWebClient(aPort) {
        gnutls_certificate_allocate_credentials(&mCredentials);
        gnutls_init(&mSession, GNUTLS_CLIENT | GNUTLS_NO_SIGNAL);
        gnutls_set_default_priority(mSession);
        gnutls_credentials_set(mSession, GNUTLS_CRD_CERTIFICATE, mCredentials);
        gnutls_transport_set_int(mSession, getSocket());
        int lResult = GNUTLS_E_AGAIN;
        while (lResult < 0 && gnutls_error_is_fatal(lResult) == 0) {
            lResult = gnutls_handshake(mSession);
        }
        mIsSafe = lResult == GNUTLS_E_SUCCESS;
    }
    ~ZTCWebTlsClient() override {
        gnutls_deinit(mSession);
        gnutls_certificate_free_credentials(mCredentials);
    }

    bool isSafe() const { return mIsSafe; }
    /// The bytes of the certificate that was shown.
    std::string getCertificate() const {
        unsigned int lCount = 0;
        const gnutls_datum_t* const lpShown = gnutls_certificate_get_peers(mSession, &lCount);
        return lCount == 0 ? "" : std::string(reinterpret_cast<char*>(lpShown->data), lpShown->size);
    }

    bool send(std::string_view aBytes) override {
        return gnutls_record_send(mSession, aBytes.data(), aBytes.size()) ==
               static_cast<ssize_t>(aBytes.size());
    }

  protected:
    ssize_t readSome(char* apBytes, std::size_t aSize) override {
        ssize_t lRead = GNUTLS_E_AGAIN;
        while (lRead == GNUTLS_E_AGAIN || lRead == GNUTLS_E_INTERRUPTED) {
            lRead = gnutls_record_recv(mSession, apBytes, aSize);
        }
        return lRead;
    }

  private:
    gnutls_certificate_credentials_t mCredentials = nullptr;
    gnutls_session_t mSession = nullptr;
    bool mIsSafe = false;
};
