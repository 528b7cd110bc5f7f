// Pictures: gets the pictures that are looked at first, and keeps them in memory and on disk.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/requests.h>
#include <citp_client/values.h>

#include <QObject>
#include <QString>

#include <memory>
#include <vector>

namespace CITP {
/// A picture of a certain version of a library or an element.
struct CITP_EXPORT PictureId
{
    QString server;       ///< key
    quint8 type{1};       ///< MSEX library type
    QString library;      ///< in the form that the server uses
    int number{-1};       ///< of the element; -1 for the picture of the library
    quint64 version{};    ///< see versionOf(); 0 if it is not known, and the picture is then not kept on disk
    QSize size{320, 240}; ///< as in Request
    QString format{};     ///< as in Request

    bool operator==(const PictureId& other) const; ///< compares all fields
};
/// For QHash.
CITP_EXPORT std::size_t qHash(const PictureId& id, std::size_t seed = 0);

/// What changes with the picture of @p element: its serial number, else its time stamp, else 0.
CITP_EXPORT quint64 versionOf(const Element& element);

/// The pictures of all servers. Those that setWanted() names are requested in that order, at each server as many at
/// once as Requests allows, so that a new order takes effect at once. In quiet mode, only those wanted by hand are.
///
/// They are kept in memory and, if there is a folder for them, on disk: at most so many bytes, those that were used
/// last. Several processes can share the folder. Files are named by the server (its UUID, else its key), and by the id;
/// a picture whose element has not changed is therefore never requested again. What cannot be written or is damaged is
/// requested again, and diskProblem() says why.
class CITP_EXPORT Pictures : public QObject
{
    Q_OBJECT

public:
    /// Of a picture.
    enum State {
        Unknown, ///< not wanted; of those that have Failed, some are remembered
        Waiting, ///< wanted, and not here yet
        Ready,   ///< see find()
        Failed   ///< see problem(); also all others of a server that has stopped answering, see Requests::isSilent()
    };

    static constexpr qint64 defaultMemoryLimit = 64 << 20; ///< bytes
    static constexpr qint64 defaultDiskLimit = 256 << 20;  ///< bytes

    /// @param requests must outlive this object
    /// @param folder for the pictures on disk, created if it is missing; empty for none
    /// @param parent may be null
    explicit Pictures(Requests& requests, const QString& folder = {}, QObject* parent = nullptr);
    /// Cancels its requests.
    ~Pictures() override;

    /// Sets the pictures that are wanted with a priority, in place of earlier ones.
    /// @param priority 0 is the highest
    /// @param ids in the order in which to request them at each server
    /// @param isByHand as in Request, also for those that have been requested and are not sent yet
    void setWanted(int priority, std::vector<PictureId> ids, bool isByHand = false);
    /// How far @p id has come.
    State state(const PictureId& id) const;
    /// The picture, from memory; without data unless it is Ready. One that was evicted there is Waiting if it is
    /// wanted.
    Picture find(const PictureId& id) const;
    /// Why it Failed: one sentence for the user.
    QString problem(const PictureId& id) const;
    /// Forgets what has Failed, so that it is requested again if it is wanted.
    void retry();
    /// Forgets @p ids, also on disk, so that those that are wanted are requested again. Until an answer comes, they are
    /// Waiting.
    void reload(const std::vector<PictureId>& ids);

    /// Pictures that were not used for longest are removed above this. The default is #defaultMemoryLimit.
    /// @param bytes 0 to 2 GiB - 1
    void setMemoryLimit(qint64 bytes);
    /// The same on disk, for all processes together. The default is #defaultDiskLimit. The folder may exceed this by
    /// an eighth for each process. It has up to 256 parts of at least 1 MiB, each with its share of the limit: what was
    /// not used for longest in a part is removed when a picture is written there, after a start with the first one.
    /// Files of others in the folder are neither counted nor removed.
    void setDiskLimit(qint64 bytes);
    /// Why the last file could not be written: one sentence for the user; empty if it could.
    QString diskProblem() const;

Q_SIGNALS:
    /// The picture is Ready or Failed now.
    void changed(const CITP::PictureId& id);
    /// diskProblem() has changed.
    void diskProblemChanged();

private:
    struct CITP_HIDDEN Private;
    const std::unique_ptr<Private> d;
};
} // namespace CITP
