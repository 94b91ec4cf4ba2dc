// SPDX-License-Identifier: MIT
#include "publish/publication.h"

#include "model/feedvalues.h"
#include "model/versioncomparison.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "publish/faults.h"
#include "publish/feedreplacement.h"
#include "publish/insidearchive.h"
#include "trust/archives.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

using trust::ArchiveClaim;

Fault input(const QString &what) { return {FaultKind::Input, what.toStdString()}; }

QString toText(const std::string &text) { return QString::fromStdString(text); }

QString textOf(const JsonEntry &members, const QString &name) {
    const auto found = members.find(name);
    return found == members.end() ? QString() : found->text;
}

/// Describes an entry in a few words.
QString describe(const JsonEntry &members) {
    QString result = u"build "_s + textOf(members, u"build"_s);
    if (const QString version = textOf(members, u"version"_s); !version.isEmpty())
        result += u" ("_s + version + u')';
    const QString address = textOf(members, u"downloadURL"_s);
    return address.isEmpty() ? result : result + u", "_s + urlFromFeedText(address).fileName();
}

/// One archive of a build, with its entry.
struct Parcel {
    PackedArchive archive;
    QUrl url;
    std::vector<std::string> signatures;
    QByteArray entry;
};

class Publication {
public:
    Publication(const PublishRequest &request, Target &target, Progress &progress, Trace &trace)
        : m_request(request)
        , m_place(request.place)
        , m_target(target)
        , m_progress(progress)
        , m_trace(trace)
        , m_scratch(scratchPattern()) {}

    Outcome<PublishReport> run() {
        using Step = Verdict (Publication::*)();
        // Checks that are quick come first. No step before pack() may start a thread: see packBundle().
        for (const Step step :
             {&Publication::checkRequest, &Publication::checkNotesFile, &Publication::readFeed,
              &Publication::checkIdentity, &Publication::checkNotOlder, &Publication::pack,
              &Publication::checkPublishedArchive, &Publication::checkNotes}) {
            if (Verdict refused = (this->*step)())
                return *std::move(refused);
        }
        if (const Outcome<bool> isThere = isPublishedAlready(); !isThere)
            return isThere.fault();
        else if (*isThere)
            return unchanged();
        for (const Step step : {&Publication::checkGreater, &Publication::edit}) {
            if (Verdict refused = (this->*step)())
                return *std::move(refused);
        }
        tellDifference();
        m_report.state = PublishReport::State::DryRun;
        if (m_place.isDryRun)
            return m_report;
        for (const Step step : {&Publication::uploadNotes, &Publication::uploadArchives}) {
            if (Verdict failed = (this->*step)())
                return *std::move(failed);
        }
        if (Verdict failed = m_feed->replace(m_trace))
            return *std::move(failed);
        m_report.state = PublishReport::State::Published;
        if (m_place.isServed)
            m_report.warnings += m_feed->doubtsAboutServer();
        return m_report;
    }

private:
    static QString scratchPattern() {
        // Not in /tmp, which may be small.
        const QString cache = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
        QDir().mkpath(cache);
        return cache + u"/txupdate-publish-XXXXXX"_s;
    }

    void say(const QString &line) const {
        if (m_place.say)
            m_place.say(line);
    }

    Verdict checkRequest() {
        if (!m_scratch.isValid())
            return Fault{FaultKind::File,
                         "no folder for the archive can be made: " + m_scratch.errorString().toStdString() +
                             ". Set XDG_CACHE_HOME to a folder that you can write to"};
        if (Verdict refused = checkPublicUrl(m_place.base, u"the URL of the published files"_s))
            return refused;
        if (m_notesUrl = QUrl(m_request.notes); !hasNotesUrl())
            m_notesUrl = {};
        else if (Verdict refused = checkPublicUrl(m_notesUrl, u"the URL of the notes"_s))
            return refused;
        if (!m_request.bounds.minBuild.isNull() && !m_request.bounds.maxBuild.isNull() &&
            compareVersions(m_request.bounds.minBuild, m_request.bounds.maxBuild) > 0)
            return input(u"--min-build is after --max-build: nobody would see the build"_s);
        if (!m_request.bounds.minSystem.isNull() && !m_request.bounds.maxSystem.isNull() &&
            compareVersions(m_request.bounds.minSystem, m_request.bounds.maxSystem) > 0)
            return input(u"--min-system is after --max-system: nobody would see the build"_s);
        if (!m_request.notesSize.isNull() && sizeFromFeedText(m_request.notesSize).isEmpty())
            return input(u"\"%1\" is not a size of the notes: width and height were expected, such as "
                         "{640, 480}"_s.arg(m_request.notesSize));
        if (m_request.types.contains(ArchiveType::Tzst)) {
            if (m_request.tzstFrom.isNull())
                return input(
                    u"from which installed build on .tzst can be unpacked is not known: name it with "
                    "--tzst-from"_s);
            if (m_request.types.size() == 1)
                return input(
                    u"installed builds before %1 cannot unpack .tzst: add --archive tgz for them"_s.arg(
                        m_request.tzstFrom));
        }
        Outcome<Application> application = readApplication(m_request.bundle);
        if (!application)
            return application.fault();
        m_application = *std::move(application);
        if (m_application.info.keys && keys().empty())
            return Fault{FaultKind::Keys, "the application has TXUpdatePublicKeys, so it installs signed "
                                          "archives only: name the key with --key"};
        if (!m_application.info.keys && !keys().empty())
            m_report.warnings << u"the application has no TXUpdatePublicKeys, so it will install the next "
                                 "build whether it is signed or not"_s;
        m_report.identifier = toText(m_application.info.bundle);
        m_report.build = toText(m_application.info.build);
        m_report.version = m_request.version.isNull() ? m_application.displayVersion : m_request.version;
        m_report.feed = urlOf(m_place, m_place.feed);
        return std::nullopt;
    }

    [[nodiscard]] bool hasNotesUrl() const { return m_request.notes.contains(u"://"_s); }

    [[nodiscard]] const std::vector<trust::SecretKey> &keys() const {
        static const std::vector<trust::SecretKey> none;
        return m_request.keys ? *m_request.keys : none;
    }

    Verdict pack() {
        const Outcome<std::vector<BundleEntry>> entries = listBundle(m_application.path);
        if (!entries)
            return entries.fault();
        if (Verdict refused = checkPrograms(m_application, *entries))
            return refused;
        for (const ArchiveType type : m_request.types) {
            Outcome<PackedArchive> packed = packBundle(m_application, *entries, type, m_scratch.path(),
                                                       m_request.newest, m_request.limits, m_progress);
            if (!packed)
                return packed.fault();
            Parcel parcel;
            parcel.archive = *std::move(packed);
            parcel.url = urlOf(m_place, parcel.archive.name);
            if (Verdict refused = sign(parcel))
                return refused;
            m_report.archives.append({parcel.archive.name, parcel.url, parcel.archive.size});
            m_parcels.append(parcel);
        }
        return std::nullopt;
    }

    Verdict sign(Parcel &parcel) const {
        const ArchiveClaim claim{
            m_application.info.bundle, m_application.info.build, parcel.archive.size, {}};
        for (const trust::SecretKey &key : keys())
            parcel.signatures.push_back(
                trust::makeSignatureText(key, parcel.archive.digest, trust::archiveComment(claim)));
        if (!m_application.info.keys)
            return std::nullopt;
        const auto proof = trust::ArchiveProof::find(*m_application.info.keys, {parcel.signatures, {}},
                                                     {claim.bundle, claim.build, {}});
        if (proof)
            return std::nullopt;
        return Fault{proof.fault().kind, "applications would refuse this archive, as the keys of the "
                                         "application in it do not verify it: " +
                                             proof.fault().what};
    }

    Verdict readFeed() {
        Outcome<FeedReplacement> feed = FeedReplacement::begin(m_place, m_target);
        if (!feed)
            return feed.fault();
        m_feed = *std::move(feed);
        return std::nullopt;
    }

    /// Returns the track's entries that are builds.
    [[nodiscard]] QList<const FeedDocument::Entry *> builds() const {
        QList<const FeedDocument::Entry *> result;
        for (const FeedDocument::Entry &entry : m_feed->document().entries()) {
            if (entry.track == m_request.track && isBuild(entry.members))
                result.append(&entry);
        }
        return result;
    }

    [[nodiscard]] Fault isFor(const QString &where, const QString &identifier) const {
        return {FaultKind::Mismatch,
                u"%1 is for %2, and this application is %3. Applications refuse a build of another "
                "identifier"_s.arg(where, identifier, m_report.identifier)
                    .toStdString()};
    }

    /// Compares the identifier with the one in the configuration and in signatures.
    Verdict checkIdentity() {
        if (!m_request.identifier.isNull() && m_request.identifier != m_report.identifier)
            return isFor(u"the configuration"_s, m_request.identifier);
        const auto &claim = m_feed->document().claim();
        if (claim && claim->bundle != m_application.info.bundle)
            return isFor(u"the feed"_s, toText(claim->bundle));
        if (claim && claim->feed != m_place.feedName.toStdString())
            return input(u"the feed has the name \"%1\" in its signature, and this application looks for "
                         "\"%2\""_s.arg(toText(claim->feed), m_place.feedName));
        m_isIdentityKnown = claim.has_value() || !m_request.identifier.isNull();
        for (const FeedDocument::Entry *entry : builds()) {
            const QString identifier = signatureOf(entry->members).identifier;
            if (!identifier.isNull() && identifier != m_report.identifier)
                return isFor(describe(entry->members), identifier);
            m_isIdentityKnown = m_isIdentityKnown || !identifier.isNull();
        }
        return std::nullopt;
    }

    /// Compares the identifier with that in the newest archive, if no signature says it.
    Verdict checkPublishedArchive() {
        const FeedDocument::Entry *newest = nullptr;
        for (const FeedDocument::Entry *entry : builds()) {
            if (!textOf(entry->members, u"downloadURL"_s).isEmpty() &&
                (!newest || compareVersions(textOf(entry->members, u"build"_s),
                                            textOf(newest->members, u"build"_s)) > 0))
                newest = entry;
        }
        if (m_isIdentityKnown || !newest)
            return std::nullopt;
        // No signature in the feed names the application, so look into the archive.
        const QUrl url = urlFromFeedText(textOf(newest->members, u"downloadURL"_s));
        const QString name = url.fileName();
        const QString copy = m_scratch.filePath(u"published"_s);
        const bool isElsewhere = url != urlOf(m_place, name);
        m_progress.begin(u"Looking at "_s + name, 0);
        const Verdict failed = m_place.isServed || isElsewhere
                                   ? fetchFile(url, copy, m_request.limits.archive, m_progress)
                                   : m_target.get(name, copy, m_progress);
        m_progress.end();
        const Outcome<QString> identifier = failed ? Outcome<QString>(*failed) : identifierInArchive(copy);
        if (!identifier)
            return Fault{identifier.fault().kind,
                         "it cannot be found out whether the feed is for this application: " +
                             identifier.fault().what + ". Name the application with --identifier"};
        if (*identifier != m_report.identifier)
            return isFor(describe(newest->members), *identifier);
        return std::nullopt;
    }

    Verdict checkNotesFile() {
        if (m_request.notes.isNull() || hasNotesUrl())
            return std::nullopt;
        QFile file(m_request.notes);
        if (!file.open(QIODevice::ReadOnly))
            return Fault{FaultKind::File,
                         u"the notes cannot be loaded: %1: %2"_s.arg(m_request.notes, file.errorString())
                             .toStdString()};
        if (file.readAll().trimmed().isEmpty())
            return input(u"the notes in %1 are empty"_s.arg(m_request.notes));
        return std::nullopt;
    }

    /// Where the notes will be; a URL must have them already.
    Verdict checkNotes() {
        if (m_request.notes.isNull())
            return std::nullopt;
        if (hasNotesUrl()) {
            m_report.notes = m_notesUrl;
            const Outcome<FetchedPage> page = fetchPage(m_notesUrl);
            if (!page)
                return Fault{page.fault().kind, "the notes cannot be loaded: " + page.fault().what};
            if (page->content.trimmed().isEmpty())
                return input(u"the notes at %1 are empty"_s.arg(m_notesUrl.toString()));
            return std::nullopt;
        }
        QString suffix = QFileInfo(m_request.notes).suffix();
        suffix = suffix.isEmpty() ? u"html"_s : suffix;
        m_notesName = QFileInfo(m_parcels.first().archive.name).completeBaseName() + u'.' + suffix;
        m_report.notes = urlOf(m_place, m_notesName);
        return std::nullopt;
    }

    /// Returns size and digest of a file, as the server or the target has it.
    Outcome<FetchedFile> fetch(const QString &name, const QUrl &url, quint64 size) {
        m_progress.begin(u"Checking "_s + name, qint64(size));
        Outcome<FetchedFile> found = m_place.isServed ? fetchDigest(url, m_scratch.filePath(u"fetched"_s),
                                                                    qint64(size) + 1, m_progress)
                                                      : m_target.digestOf(name, m_progress);
        m_progress.end();
        return found;
    }

    /// Returns no fault if the target has exactly these bytes and the entry's signatures verify them.
    Verdict check(const Parcel &parcel) {
        const PackedArchive &archive = parcel.archive;
        const Outcome<FetchedFile> found = fetch(archive.name, parcel.url, archive.size);
        if (!found)
            return found.fault();
        if (found->size != archive.size || found->digest != archive.digest)
            return Fault{
                FaultKind::Mismatch,
                u"%1 is not what was uploaded: %2 bytes came, %3 were expected. Run the same command "
                "again; if that does not help, a cache in front of the target keeps an old file"_s
                    .arg(parcel.url.toString(QUrl::RemoveUserInfo))
                    .arg(found->size)
                    .arg(archive.size)
                    .toStdString()};
        for (size_t i = 0; i < keys().size(); ++i) {
            const auto text = trust::SignatureText::parse(parcel.signatures[i]);
            if (!text || !text->verify(found->digest, keys()[i].publicKey()))
                return Fault{FaultKind::Forged, "the signature of " + archive.name.toStdString() +
                                                    " does not verify what the server has"};
        }
        return std::nullopt;
    }

    /// Returns the entry of this build that names the archive, or null.
    [[nodiscard]] const FeedDocument::Entry *entryOf(const Parcel &parcel) const {
        const auto all = builds();
        const auto found = std::ranges::find_if(all, [&](const FeedDocument::Entry *entry) {
            return textOf(entry->members, u"build"_s) == m_report.build &&
                   urlFromFeedText(textOf(entry->members, u"downloadURL"_s)) == parcel.url;
        });
        return found == all.end() ? nullptr : *found;
    }

    /// Returns whether the feed already names the same archive at the same URL for this build: an earlier run
    /// was complete.
    Outcome<bool> isPublishedAlready() {
        for (const Parcel &parcel : std::as_const(m_parcels)) {
            if (!entryOf(parcel))
                return false;
            const Outcome<std::optional<quint64>> size = m_target.sizeOf(parcel.archive.name);
            if (!size)
                return size.fault();
            const Verdict wrong = *size == parcel.archive.size ? check(parcel) : std::nullopt;
            // A server that does not answer says nothing about the archive.
            if (wrong && wrong->kind == FaultKind::File)
                return *wrong;
            if (*size != parcel.archive.size || wrong)
                return input(
                    u"build %1 is published already, with another archive. Applications that have it "
                    "would never get this one: increase CFBundleVersion"_s.arg(m_report.build));
        }
        return true;
    }

    Outcome<PublishReport> unchanged() {
        if (!m_place.isDryRun) {
            if (Verdict failed = m_feed->finishInterrupted())
                return *std::move(failed);
        }
        m_report.state = PublishReport::State::Unchanged;
        const bool areNotesNamed = std::ranges::all_of(m_parcels, [this](const Parcel &parcel) {
            return urlFromFeedText(textOf(entryOf(parcel)->members, u"releaseNotesURL"_s)) == m_report.notes;
        });
        if (!m_request.notes.isNull() && !areNotesNamed)
            m_report.warnings
                << u"build %1 is published with other notes or without any, and its entry stays. "
                   "To change it, withdraw the build and publish it again"_s.arg(m_report.build);
        else if (!m_notesName.isNull() && !areNotesThere())
            return replaceNotes();
        say(u"build %1 is published already: nothing to do"_s.arg(m_report.build));
        return m_report;
    }

    [[nodiscard]] bool areNotesThere() {
        Progress silent(-1);
        const Outcome<FetchedFile> local = digestOfFile(m_request.notes, silent);
        const Outcome<FetchedFile> published = m_target.digestOf(m_notesName, silent);
        return local && published && local->digest == published->digest;
    }

    /// Release notes are not signed, so a publisher may correct them after the build is published.
    Outcome<PublishReport> replaceNotes() {
        say(u"build %1 is published already, with other notes"_s.arg(m_report.build));
        say(u"upload %1"_s.arg(m_notesName));
        if (m_place.isDryRun)
            return m_report;
        if (Verdict failed = uploadNotes())
            return *std::move(failed);
        return m_report;
    }

    /// Refuses a build that is older than one in the feed. Comes before packing, which takes long.
    Verdict checkNotOlder() { return checkOrder(-1); }

    /// No application may see this build together with one that is equally new or newer.
    Verdict checkGreater() { return checkOrder(0); }

    /// `most`: refuse the build if comparing it with another build gives at most this.
    Verdict checkOrder(int most) {
        for (const FeedDocument::Entry *entry : builds()) {
            const QString build = textOf(entry->members, u"build"_s);
            if (compareVersions(m_report.build, build) > most ||
                !overlap(boundsOf(entry->members), m_request.bounds))
                continue;
            return input(u"build %1 is not greater than build %2, which the feed has in the track \"%3\": "
                         "applications would not see it as an update. Increase CFBundleVersion"_s.arg(
                             m_report.build, build, m_request.track));
        }
        return std::nullopt;
    }

    [[nodiscard]] QStringList signers() const {
        QStringList result;
        for (const trust::SecretKey &key : keys())
            result << toText(trust::keyNumberText(key.publicKey().number));
        return result;
    }

    Verdict edit() {
        BuildWords words;
        words.build = m_report.build;
        words.version = m_report.version;
        words.title = m_request.title.isNull() ? m_application.name + u' ' + words.version : m_request.title;
        words.date = m_request.date.isValid() ? m_request.date : services().now();
        words.description = m_request.description;
        words.notes = m_report.notes;
        words.notesSize = m_request.notesSize;
        words.autodownload = m_request.autodownload;
        QList<QByteArray> added;
        for (Parcel &parcel : m_parcels) {
            words.bounds = m_request.bounds;
            if (parcel.archive.type == ArchiveType::Tzst)
                words.bounds.minBuild = later(m_request.tzstFrom, words.bounds.minBuild);
            else if (m_request.types.contains(ArchiveType::Tzst))
                words.bounds.maxBuild = earlier(m_request.tzstFrom, words.bounds.maxBuild);
            parcel.entry = buildEntry(words, parcel.url, parcel.signatures);
            // An application takes the first of two entries that it sees.
            if (parcel.archive.type == ArchiveType::Tzst)
                added.prepend(parcel.entry);
            else
                added.append(parcel.entry);
        }
        QList<qsizetype> dropped;
        const QList<FeedDocument::Entry> &entries = m_feed->document().entries();
        bool hasSharedKey = false;
        bool hasSigned = false;
        for (qsizetype i = 0; i < entries.size(); ++i) {
            const JsonEntry &members = entries[i].members;
            if (entries[i].track != m_request.track || !isBuild(members))
                continue;
            for (const QString &signer : signatureOf(members).signers) {
                hasSigned = true;
                hasSharedKey = hasSharedKey || signers().contains(signer);
            }
            const QString reason = whyStillNeeded(members, m_report.build, m_request.bounds, signers());
            if (reason.isNull()) {
                dropped << i;
                m_report.dropped << describe(members);
            } else {
                m_report.kept << describe(members) + u": it "_s + reason;
            }
        }
        if (hasSigned && !hasSharedKey)
            m_report.warnings << u"none of the keys of earlier builds signs this one: applications that have "
                                 "only those keys refuse it. Sign with an old and a new key first"_s;
        return m_feed->edit(m_request.track, added, dropped);
    }

    static QString later(const QString &a, const QString &b) {
        return b.isNull() || compareVersions(a, b) > 0 ? a : b;
    }
    static QString earlier(const QString &a, const QString &b) {
        return b.isNull() || compareVersions(a, b) < 0 ? a : b;
    }

    void tellDifference() const {
        say(u"%1 at %2, track \"%3\""_s.arg(m_place.feed, m_target.description(), m_request.track));
        for (const Parcel &parcel : m_parcels) {
            for (const QByteArray &line : parcel.entry.split('\n'))
                say(u"+ "_s + QString::fromUtf8(line));
        }
        for (const QString &entry : m_report.dropped)
            say(u"- "_s + entry);
        for (const QString &entry : m_report.kept)
            say(u"  "_s + entry);
        for (const PublishReport::File &file : m_report.archives)
            say(u"upload %1, %2 bytes"_s.arg(file.name).arg(file.size));
        if (!m_notesName.isNull())
            say(u"upload %1"_s.arg(m_notesName));
    }

    Verdict uploadNotes() {
        if (m_notesName.isNull())
            return std::nullopt;
        Progress silent(-1);
        const Outcome<FetchedFile> local = digestOfFile(m_request.notes, silent);
        if (!local)
            return local.fault();
        // Copied to set a mode that web servers can read.
        const QString copy = m_scratch.filePath(m_notesName);
        if (const TXError error = services().fileSystem->copy(m_request.notes, copy))
            return Fault{FaultKind::File, error.localizedDescription().toStdString()};
        QFile::setPermissions(copy,
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
        m_trace.hasUploaded = true;
        if (Verdict failed = m_target.put(copy, m_notesName, m_progress))
            return failed;
        const Outcome<FetchedFile> found = fetch(m_notesName, m_report.notes, local->size);
        if (!found)
            return found.fault();
        if (found->digest != local->digest)
            return Fault{FaultKind::Mismatch,
                         "the notes at " + m_report.notes.toString().toStdString() +
                             " are not what was uploaded. If the server adds something to pages, pass a URL "
                             "to --notes; if a cache is in front of it, wait and run the same command again"};
        return std::nullopt;
    }

    Verdict uploadArchives() {
        for (const Parcel &parcel : std::as_const(m_parcels)) {
            const PackedArchive &archive = parcel.archive;
            const Outcome<std::optional<quint64>> size = m_target.sizeOf(archive.name);
            if (!size)
                return size.fault();
            // An earlier run uploaded this file and was then interrupted.
            if (*size == archive.size && !check(parcel))
                continue;
            const auto &entries = m_feed->document().entries();
            const bool isNamed = std::ranges::any_of(entries, [&](const FeedDocument::Entry &entry) {
                return urlFromFeedText(textOf(entry.members, u"downloadURL"_s)) == parcel.url;
            });
            if (isNamed)
                return input(u"the feed names %1 in another entry, and its content would change"_s.arg(
                    parcel.url.toString(QUrl::RemoveUserInfo)));
            m_trace.hasUploaded = true;
            m_progress.begin(u"Uploading "_s + archive.name, qint64(archive.size));
            const Verdict failed = m_target.put(archive.path, archive.name, m_progress);
            m_progress.end();
            if (failed)
                return failed;
            if (Verdict refused = check(parcel))
                return refused;
        }
        return std::nullopt;
    }

    const PublishRequest &m_request;
    const FeedPlace &m_place;
    Target &m_target;
    Progress &m_progress;
    Trace &m_trace;
    const QTemporaryDir m_scratch;
    Application m_application;
    QUrl m_notesUrl;
    QString m_notesName; ///< name at the target of a file that is uploaded
    QList<Parcel> m_parcels;
    bool m_isIdentityKnown = false; ///< from the request or from signatures
    std::optional<FeedReplacement> m_feed;
    PublishReport m_report;
};

} // namespace

Outcome<PublishReport> publish(const PublishRequest &request, Target &target, Progress &progress,
                               Trace &trace) {
    return Publication(request, target, progress, trace).run();
}

} // namespace tx::publishing
