// The regression corpus: every folder below tests/data that holds an
// expected.json is one case. Its files are copied to a folder of their own,
// the programs that expected.json names are run there one after another as a
// user runs them, and each run's exit status and output are held against
// what expected.json says (see tests/data/README.md for its keys).
#include "corpus/CorpusExpectation.h"
#include "support/CommandRunner.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <ostream>
#include <sys/stat.h>
#include <vector>

using folivox::test::CommandRun;
using folivox::test::CommandRunner;
using folivox::test::CorpusExpectation;

namespace {

const QString kCorpusDir = QStringLiteral(FOLIVOX_CORPUS_DIR);
constexpr qint64 kLargestFile = 100 * 1024;
constexpr qint64 kLargestCorpus = 2 * 1024 * 1024;
constexpr int kRunTimeoutMs = 60'000;
// A hole of gigabytes that takes more than this on disk was written out:
// the temporary folder's file system keeps no holes.
constexpr qint64 kMostBytesForAHole = 64 * 1024 * 1024;

// Folivox's own programs, and ffmpeg (from PATH) to look at a file with
// other eyes.
const QStringList kPrograms { QStringLiteral("folivox"), QStringLiteral("mp4tags"), QStringLiteral("mp4art"),
    QStringLiteral("mp4chaps"), QStringLiteral("ffmpeg") };
const QSet<QString> kCaseKeys { QStringLiteral("about"), QStringLiteral("use"), QStringLiteral("holes"), QStringLiteral("runs"),
    QStringLiteral("unchanged"), QStringLiteral("creates") };
const QSet<QString> kRunKeys { QStringLiteral("run"), QStringLiteral("exitCode"), QStringLiteral("tolerance"),
    QStringLiteral("stdoutJson"), QStringLiteral("stdout"), QStringLiteral("stdoutContains"), QStringLiteral("stderr"),
    QStringLiteral("stderrContains"), QStringLiteral("about") };
// Files of a case folder that are not inputs.
const QSet<QString> kNotInputs { QStringLiteral("expected.json"), QStringLiteral("make.sh") };

struct CorpusCase {
    QString id; // "mp4/largesize-mdat": the folder below tests/data
    QString dir; // its absolute path
};

// gtest names a case by its folder, not by its bytes.
void PrintTo(const CorpusCase& c, std::ostream* out)
{
    *out << c.id.toStdString();
}

std::vector<CorpusCase> findCases()
{
    std::vector<CorpusCase> cases;
    QDirIterator it(kCorpusDir, { QStringLiteral("expected.json") }, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString dir = QFileInfo(it.next()).absolutePath();
        cases.push_back({ QDir(kCorpusDir).relativeFilePath(dir), dir });
    }
    std::sort(cases.begin(), cases.end(), [](const CorpusCase& a, const CorpusCase& b) { return a.id < b.id; });
    return cases;
}

QStringList filesBelow(const QString& dir)
{
    QStringList files;
    QDirIterator it(dir, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(dir).relativeFilePath(it.next());
    files.sort();
    return files;
}

QStringList strings(const QJsonValue& value)
{
    QStringList out;
    for (const QJsonValue& v : value.toArray())
        out << v.toString();
    return out;
}

// The file with `bytes` zero bytes inserted at `at`, the zeros left as a
// hole: the file is small on disk however large it reads.
bool writeWithHole(const QString& from, const QString& to, qint64 at, qint64 bytes, QString& why)
{
    QFile in(from);
    QFile out(to);
    if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly)) {
        why = QStringLiteral("cannot copy ") + from;
        return false;
    }
    const QByteArray data = in.readAll();
    if (at < 0 || at > data.size() || bytes <= 0) {
        why = QStringLiteral("hole at %1 of %2 bytes does not fit %3").arg(at).arg(bytes).arg(from);
        return false;
    }
    if (out.write(data.left(at)) != at || !out.seek(at + bytes) || out.write(data.mid(at)) != data.size() - at) {
        why = QStringLiteral("cannot write ") + to + QStringLiteral(": ") + out.errorString();
        return false;
    }
    return true;
}

qint64 bytesOnDisk(const QString& path)
{
    struct stat st { };
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return -1;
    return qint64(st.st_blocks) * 512;
}

QString shown(const QByteArray& output)
{
    constexpr qsizetype kMost = 6000;
    QString text = QString::fromUtf8(output.left(kMost));
    if (output.size() > kMost)
        text += QStringLiteral("\n[... %1 more bytes]").arg(output.size() - kMost);
    return text;
}

class CorpusCaseTest : public ::testing::TestWithParam<CorpusCase> { };

TEST_P(CorpusCaseTest, RunsAsExpected)
{
    const CorpusCase& c = GetParam();
    QFile file(QDir(c.dir).filePath(QStringLiteral("expected.json")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName().toStdString();
    QJsonParseError parseError {};
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parseError);
    ASSERT_TRUE(doc.isObject()) << c.id.toStdString()
                                << "/expected.json does not parse: " << parseError.errorString().toStdString() << " at byte "
                                << parseError.offset;
    const QJsonObject expected = doc.object();

    // A misspelt key would check nothing: refuse it.
    for (const QString& key : expected.keys())
        ASSERT_TRUE(kCaseKeys.contains(key))
            << c.id.toStdString() << "/expected.json: unknown key \"" << key.toStdString() << '"';
    const QJsonArray runs = expected.value(QStringLiteral("runs")).toArray();
    ASSERT_FALSE(runs.isEmpty()) << c.id.toStdString() << "/expected.json names no runs";
    for (const QJsonValue& r : runs) {
        const QJsonObject run = r.toObject();
        for (const QString& key : run.keys())
            ASSERT_TRUE(kRunKeys.contains(key))
                << c.id.toStdString() << "/expected.json: unknown key \"" << key.toStdString() << "\" in a run";
        ASSERT_TRUE(run.value(QStringLiteral("exitCode")).isDouble())
            << c.id.toStdString() << "/expected.json: every run states its exitCode";
        ASSERT_TRUE(kPrograms.contains(run.value(QStringLiteral("run")).toArray().at(0).toString()))
            << c.id.toStdString() << "/expected.json: a run starts with one of " << kPrograms.join(u' ').toStdString();
    }

    // The case's own files and those it borrows, in a folder of their own.
    QTemporaryDir work;
    ASSERT_TRUE(work.isValid());
    QList<std::pair<QString, QString>> sources; // name in the work folder, file in the corpus
    for (const QString& name : filesBelow(c.dir))
        if (!kNotInputs.contains(name))
            sources.append({ name, QDir(c.dir).filePath(name) });
    // "use": a list of files, each copied in under its own name, or an
    // object of the names to give them and the files.
    const QJsonValue use = expected.value(QStringLiteral("use"));
    QList<std::pair<QString, QString>> borrowed;
    for (const QString& path : strings(use))
        borrowed.append({ QFileInfo(path).fileName(), path });
    const QJsonObject named = use.toObject();
    for (auto it = named.constBegin(); it != named.constEnd(); ++it)
        borrowed.append({ it.key(), it.value().toString() });
    for (const auto& [name, path] : borrowed) {
        const QString from = QDir(c.dir).absoluteFilePath(path);
        ASSERT_TRUE(QFileInfo(from).isFile()) << c.id.toStdString() << ": cannot use " << path.toStdString();
        sources.append({ name, from });
    }
    const QJsonObject holes = expected.value(QStringLiteral("holes")).toObject();
    QStringList inputs;
    for (const auto& [name, from] : sources) {
        const QString to = work.filePath(name);
        ASSERT_TRUE(QDir().mkpath(QFileInfo(to).absolutePath()));
        if (holes.contains(name)) {
            const QJsonObject hole = holes.value(name).toObject();
            const qint64 bytes = hole.value(QStringLiteral("bytes")).toInteger();
            QString why;
            ASSERT_TRUE(writeWithHole(from, to, hole.value(QStringLiteral("at")).toInteger(), bytes, why)) << why.toStdString();
            if (bytesOnDisk(to) > QFileInfo(from).size() + kMostBytesForAHole)
                GTEST_SKIP() << "the temporary folder's file system keeps no holes; " << name.toStdString() << " would take "
                             << bytes << " bytes";
        } else {
            ASSERT_TRUE(QFile::copy(from, to)) << from.toStdString();
        }
        inputs << name;
    }
    for (auto it = holes.constBegin(); it != holes.constEnd(); ++it)
        ASSERT_TRUE(inputs.contains(it.key()))
            << c.id.toStdString() << ": a hole in " << it.key().toStdString() << ", which the case does not have";

    // Paths of the work folder read as $CASE in the output.
    const QString workPath = QDir(work.path()).absolutePath();
    const QString canonicalWork = QFileInfo(workPath).canonicalFilePath();
    const auto normalized = [&](const QByteArray& output) {
        QString text = QString::fromUtf8(output);
        text.replace(canonicalWork, QStringLiteral("$CASE"));
        text.replace(workPath, QStringLiteral("$CASE"));
        return text;
    };

    for (qsizetype i = 0; i < runs.size(); ++i) {
        const QJsonObject run = runs.at(i).toObject();
        QStringList args = strings(run.value(QStringLiteral("run")));
        const QString program = args.takeFirst();
        const QString binary
            = program == u"ffmpeg" ? QStandardPaths::findExecutable(program) : CommandRunner::toolBinary(program);
        ASSERT_FALSE(binary.isEmpty()) << program.toStdString()
                                       << " is not there (FOLIVOX_TOOLS_DIR=" << qgetenv("FOLIVOX_TOOLS_DIR").toStdString()
                                       << ')';
        const CommandRun result = CommandRunner::runProgram(binary, args, work.path(), kRunTimeoutMs);
        const QString out = normalized(result.out);
        const QString err = normalized(result.err);
        const double tolerance = run.value(QStringLiteral("tolerance")).toDouble(0.0005);

        QStringList differences;
        const int exitCode = run.value(QStringLiteral("exitCode")).toInt();
        if (result.exitCode != exitCode)
            differences << QStringLiteral("exit code: expected %1, got %2").arg(exitCode).arg(result.exitCode);
        if (run.contains(QStringLiteral("stdoutJson"))) {
            QJsonParseError outError {};
            const QJsonDocument actual = QJsonDocument::fromJson(out.toUtf8(), &outError);
            if (outError.error != QJsonParseError::NoError)
                differences << QStringLiteral("stdout is not JSON: ") + outError.errorString();
            else
                CorpusExpectation::compare(run.value(QStringLiteral("stdoutJson")),
                    actual.isObject() ? QJsonValue(actual.object()) : QJsonValue(actual.array()), QStringLiteral("stdout"),
                    tolerance, differences);
        }
        for (const auto& [key, text] :
            { std::pair { QStringLiteral("stdout"), out }, std::pair { QStringLiteral("stderr"), err } }) {
            if (run.contains(key) && run.value(key).toString() != text)
                differences << key + QStringLiteral(": expected exactly\n") + run.value(key).toString();
            for (const QString& part : strings(run.value(key + QStringLiteral("Contains"))))
                if (!text.contains(part))
                    differences << key + QStringLiteral(": does not contain \"") + part + u'"';
        }
        if (!differences.isEmpty()) {
            ADD_FAILURE() << c.id.toStdString() << ", run " << i + 1 << ": "
                          << (QStringList { program } + args).join(u' ').toStdString() << "\n  "
                          << differences.join(QStringLiteral("\n  ")).toStdString() << "\n--- stdout ---\n"
                          << shown(out.toUtf8()).toStdString() << "\n--- stderr ---\n"
                          << shown(err.toUtf8()).toStdString();
        }
    }

    // Files a refusal must leave as they were.
    for (const QString& name : strings(expected.value(QStringLiteral("unchanged")))) {
        ASSERT_FALSE(holes.contains(name)) << c.id.toStdString() << ": a file with a hole can't be compared";
        QFile before(QDir(c.dir).filePath(name));
        QFile after(work.filePath(name));
        ASSERT_TRUE(before.open(QIODevice::ReadOnly)) << c.id.toStdString() << ": no such input " << name.toStdString();
        EXPECT_TRUE(after.open(QIODevice::ReadOnly) && after.readAll() == before.readAll())
            << c.id.toStdString() << ": " << name.toStdString() << " was changed or removed";
    }
    // A hole stays a hole: a run that wrote it out copied gigabytes of a
    // book it was meant to edit in place.
    for (auto it = holes.constBegin(); it != holes.constEnd(); ++it) {
        const qint64 onDisk = bytesOnDisk(work.filePath(it.key()));
        EXPECT_LE(onDisk, kMostBytesForAHole) << c.id.toStdString() << ": " << it.key().toStdString() << " takes " << onDisk
                                              << " bytes on disk after the runs: its hole was written out";
    }
    // Nothing left behind but the inputs and what the runs are meant to write.
    QStringList wanted = inputs + strings(expected.value(QStringLiteral("creates")));
    wanted.sort();
    EXPECT_EQ(filesBelow(work.path()).join(QStringLiteral(", ")).toStdString(), wanted.join(QStringLiteral(", ")).toStdString())
        << c.id.toStdString() << ": the files after the runs (inputs and \"creates\")";
}

std::string caseName(const ::testing::TestParamInfo<CorpusCase>& info)
{
    QString name = info.param.id;
    name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9]")), QStringLiteral("_"));
    return name.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusCaseTest, ::testing::ValuesIn(findCases()), caseName);

TEST(Corpus, HasCasesInEveryArea)
{
    const QStringList areas = QDir(kCorpusDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    ASSERT_FALSE(areas.isEmpty()) << "no corpus in " << kCorpusDir.toStdString();
    const std::vector<CorpusCase> cases = findCases();
    for (const QString& area : areas) {
        EXPECT_TRUE(QFileInfo(QDir(kCorpusDir).filePath(area + QStringLiteral("/make.sh"))).isExecutable())
            << "tests/data/" << area.toStdString() << " has no executable make.sh that makes its files";
        EXPECT_TRUE(std::any_of(cases.begin(), cases.end(), [&](const CorpusCase& c) { return c.id.startsWith(area + u'/'); }))
            << "tests/data/" << area.toStdString() << " has no case";
    }
}

TEST(Corpus, StaysSmall)
{
    qint64 total = 0;
    for (const QString& name : filesBelow(kCorpusDir)) {
        const qint64 size = QFileInfo(QDir(kCorpusDir).filePath(name)).size();
        EXPECT_LE(size, kLargestFile) << "tests/data/" << name.toStdString() << " is too large to commit";
        total += size;
    }
    EXPECT_LE(total, kLargestCorpus) << "tests/data holds " << total << " bytes";
}

} // namespace
