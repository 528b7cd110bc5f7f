// Catalogue: the tree of libraries of one server with their elements, loaded on demand or whole, and kept up to date.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/requests.h>
#include <citp_client/values.h>

#include <QObject>
#include <QString>

#include <memory>
#include <vector>

namespace CITP {
class Msg_MSEX_ELUP;

/// What a server holds. It survives the loss of the server: what was loaded is loaded again when the server is back,
/// elements only of libraries whose serial number has changed. Receivers of its signals must not delete it;
/// deleteLater() is safe.
///
/// After an update (ELUp), only what it names is requested. A change during a request makes that request be repeated.
/// A library has at most three levels above it, and the catalogue at most Catalogue::maxLibraries libraries, so that no
/// server can make the tree endless; further libraries are left out and librariesProblem() says so. MSEX 1.0 has a
/// single level. What the server lists twice or in the wrong place counts once or not at all; see librariesOf() and
/// elementsOf().
class CITP_EXPORT Catalogue : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxLibraries = 65536; ///< of all types together

    /// Of a list.
    enum State {
        Unknown, ///< not loaded
        Loading, ///< for the first time; later requests leave it Loaded
        Loaded,  ///< see libraries() and elements()
        Failed   ///< see librariesProblem() and elementsProblem()
    };

    /// @param requests must outlive this object
    /// @param server key of the server, which need not be up yet
    /// @param parent may be null
    Catalogue(Requests& requests, const QString& server, QObject* parent = nullptr);
    ~Catalogue() override;

    /// Its key.
    QString server() const;

    /// Requests the libraries below @p library; again, if they are loaded.
    /// @param type MSEX library type
    /// @param library identifier
    /// @param isByHand as in Request, also for what has been requested already and is not sent yet
    void loadLibraries(quint8 type, const QString& library = rootLibrary(), bool isByHand = false);
    /// Requests the elements of @p library; again, if they are loaded.
    /// @param type MSEX library type
    /// @param library identifier
    /// @param isByHand as for loadLibraries()
    void loadElements(quint8 type, const QString& library, bool isByHand = false);
    /// Requests all libraries of @p type with their elements, now and whenever libraries are added.
    void loadAll(quint8 type);
    /// Requests all libraries of @p type without their elements, now and whenever libraries are added.
    void loadAllLibraries(quint8 type);
    /// Whether no request of this object is waiting for its end.
    bool isIdle() const;
    /// Whether libraries were left out, because the server lists more than #maxLibraries.
    bool isFull() const;

    /// The libraries below @p library in the server's order; empty unless loaded.
    std::vector<Library> libraries(quint8 type, const QString& library = rootLibrary()) const;
    /// All libraries of @p type, parents before their children.
    std::vector<Library> allLibraries(quint8 type) const;
    /// The library @p id; without an id if it is unknown.
    Library library(quint8 type, const QString& id) const;
    /// The elements of @p library in the server's order. The reference is valid until the event loop runs.
    const std::vector<Element>& elements(quint8 type, const QString& library) const;
    /// That of libraries().
    State librariesState(quint8 type, const QString& library = rootLibrary()) const;
    /// That of elements().
    State elementsState(quint8 type, const QString& library) const;
    /// Why the last request of the libraries below @p library, or of its elements, failed, or what was odd about its
    /// answer: one sentence for the user. Empty if nothing was.
    QString librariesProblem(quint8 type, const QString& library = rootLibrary()) const;
    /// @copydoc librariesProblem
    QString elementsProblem(quint8 type, const QString& library) const;

Q_SIGNALS:
    /// The libraries below @p library, their state or their problem have changed.
    void librariesChanged(quint8 type, const QString& library);
    /// The elements of @p library, their state or their problem have changed.
    void elementsChanged(quint8 type, const QString& library);
    /// isIdle() has become true.
    void idle();

private:
    struct CITP_HIDDEN Private;
    const std::unique_ptr<Private> d;
};
} // namespace CITP
