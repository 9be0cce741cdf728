// An ordered list of revocation or policy clients that a stacking client asks
// one after the other.
#pragma once

#include "QorVector.h"
#include "TesseraExport.h"

namespace TesseraLib {

// T is a client pointer type. The clients are not owned; the order of
// insertion is the order in which they are asked.
template <class T>
class TESSERA_API X509ClientStack {
public:
    X509ClientStack() = default;
    X509ClientStack(const X509ClientStack& other) = default;
    X509ClientStack& operator=(const X509ClientStack& other) = default;
    virtual ~X509ClientStack() {}

    // Appends `client` unless the same pointer is in the list already.
    void AddClient(T client) {
        if (IndexOf(client) < 0) {
            m_clients.Add(client);
        }
    }

    // Removes the first occurrence of `client`, closing the gap.
    void RemoveClient(T client) {
        const int index = IndexOf(client);
        if (index >= 0) {
            m_clients.RemoveAt(static_cast<unsigned int>(index));
        }
    }

    const qorstd::QorVector<T>& GetClients() const { return m_clients; }

protected:
    int IndexOf(T client) const {
        for (unsigned int i = 0; i < m_clients.GetSize(); ++i) {
            if (m_clients[i] == client) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }

    qorstd::QorVector<T> m_clients;
};

}  // namespace TesseraLib
