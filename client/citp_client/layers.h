// Layers and Patch: what a server reports by itself: the status of its layers and its patched fixtures.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/transport.h>

#include <QObject>
#include <QString>

#include <map>
#include <memory>
#include <vector>

namespace CITP {
class Msg_FPTC_PTCH;
class Msg_MSEX_LSTA;

/// The status of one layer.
struct CITP_EXPORT Layer
{
    quint8 number{0};    ///< of the layer
    quint8 output{0};    ///< number of the physical output that shows it
    quint8 type{1};      ///< MSEX library type; media in MSEX 1.0, which does not say
    QString library;     ///< of the element, in the form that the server uses elsewhere
    quint8 element{0};   ///< number of the element in the library
    QString name;        ///< of the element
    quint32 position{0}; ///< current frame
    quint32 length{0};   ///< in frames
    quint8 frameRate{0}; ///< frames per second
    quint32 flags{0};    ///< as received
};

/// The layers of one server, as it last reported them.
///
/// Servers of MSEX 1.1 report them in MSEX 1.0, with a number for a library; it is converted to its identifier.
class CITP_EXPORT Layers : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 interval = 40;    ///< the default of setInterval()
    static constexpr qint64 staleTime = 3000; ///< ms without a report until isStale()

    /// @param transport must outlive this object
    /// @param server key of the server, which need not be up yet
    /// @param parent may be null
    Layers(Transport& transport, const QString& server, QObject* parent = nullptr);
    ~Layers() override;

    /// The time between two changed(), however often the server reports, in ms; 0 for every report.
    void setInterval(qint64 milliseconds) { m_interval = milliseconds; }
    /// In the server's order; empty if there was no report on this connection.
    const std::vector<Layer>& layers() const { return m_layers; }
    /// The time since the last report in ms; -1 if there was none on this connection.
    qint64 age() const;
    /// Whether the last report is so old that nothing can be concluded from it. True if there was none.
    bool isStale() const;

Q_SIGNALS:
    /// layers() or isStale() has changed.
    void changed();

private:
    CITP_HIDDEN void convert();
    CITP_HIDDEN void wakeUp();

    Transport& m_transport;
    const QString m_server;
    std::unique_ptr<Msg_MSEX_LSTA> m_newest; ///< not in #m_layers yet
    std::vector<Layer> m_layers;
    qint64 m_interval{interval};
    qint64 m_reported{-1};
    qint64 m_emitted{-1};
    bool m_isNew{false};
    bool m_wasStale{true};
};

/// One patched fixture.
struct CITP_EXPORT Fixture
{
    quint16 identifier{0}; ///< of the fixture
    quint8 universe{0};    ///< DMX universe
    quint16 channel{0};    ///< first DMX channel
    quint16 channels{0};   ///< number of DMX channels
    QString make;          ///< manufacturer
    QString name;          ///< model
};

/// The patch of one server. The protocol does not say where it ends: it counts as complete when no fixture has come for
/// Patch::quietTime. An application that has no use for patches should not create one, because then no fixture crosses
/// threads.
class CITP_EXPORT Patch : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 quietTime = 1000;        ///< ms without a fixture after which a patch is Complete
    static constexpr qint64 maxCharacters = 1 << 26; ///< of all names together; more than any show has

    /// How much of the patch is known.
    enum State {
        Unknown,   ///< no fixture has come, or the patch is empty
        Receiving, ///< fixtures are coming
        Complete,  ///< none has come for #quietTime
        Cut,       ///< the server went down while they came
        TooLarge   ///< more than #maxCharacters: the others are left out
    };

    /// Requests the patch if @p server is up; the stack does so when it comes up.
    /// @param transport must outlive this object
    /// @param server key of the server, which need not be up yet
    /// @param parent may be null
    Patch(Transport& transport, const QString& server, QObject* parent = nullptr);
    ~Patch() override;

    /// Requests the whole patch again. Fixtures that do not come again stay.
    void request();
    /// Sorted by identifier; of the last connection if the server is down.
    std::vector<Fixture> fixtures() const;
    /// How much of it is known.
    State state() const { return m_state; }

Q_SIGNALS:
    /// state() has changed, or fixtures() of a Complete patch.
    void changed();

private:
    CITP_HIDDEN void setState(State state);
    CITP_HIDDEN void take(const Msg_FPTC_PTCH& message);

    Transport& m_transport;
    const QString m_server;
    std::map<quint16, Fixture> m_fixtures;
    qint64 m_characters{0};
    qint64 m_received{0};
    State m_state{Unknown};
};
} // namespace CITP
