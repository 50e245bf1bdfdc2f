#include "process/BinaryResolver.h"
#include "process/ToolLaunchError.h"

#include "support/ScriptedTool.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::ScopedEnvironment;
using folivox::test::ScriptedTool;

namespace {
QString archName()
{
    return QStringLiteral("mp4tags-") + BinaryResolver::currentArchitecture();
}
} // namespace

TEST(BinaryResolverTest, ArchitectureNamesMapBothWays)
{
    const QString arch = BinaryResolver::currentArchitecture();
    ASSERT_TRUE(arch == QLatin1String("x86_64") || arch == QLatin1String("arm64")) << arch.toStdString();
    EXPECT_EQ(BinaryResolver::otherArchitecture(QStringLiteral("x86_64")), QStringLiteral("arm64"));
    EXPECT_EQ(BinaryResolver::otherArchitecture(QStringLiteral("arm64")), QStringLiteral("x86_64"));
    EXPECT_EQ(BinaryResolver::otherArchitecture(QStringLiteral("riscv64")), QString());
    EXPECT_EQ(BinaryResolver::architectureSuffix(QStringLiteral("arm64")), QStringLiteral("-arm64"));
    EXPECT_EQ(BinaryResolver::otherArchitecturePath(QStringLiteral("/t/ffmpeg-x86_64")), QStringLiteral("/t/ffmpeg-arm64"));
    EXPECT_EQ(BinaryResolver::otherArchitecturePath(QStringLiteral("/t/ffmpeg-arm64")), QStringLiteral("/t/ffmpeg-x86_64"));
    EXPECT_EQ(BinaryResolver::otherArchitecturePath(QStringLiteral("/t/ffmpeg")),
              QStringLiteral("/t/ffmpeg-") + BinaryResolver::otherArchitecture(arch));
}

TEST(BinaryResolverTest, PrefersThisProcessorsFileThenThePlainNameThenPath)
{
    QTemporaryDir first;
    QTemporaryDir second;
    const BinaryResolver resolver({first.path(), second.path()});
    EXPECT_EQ(resolver.find(QStringLiteral("mp4tags")), std::nullopt);

    const QString plainInSecond = ScriptedTool::write(second.path(), QStringLiteral("mp4tags"), QStringLiteral("exit 0"));
    EXPECT_EQ(resolver.find(QStringLiteral("mp4tags")), plainInSecond);
    // A folder earlier in the list wins, and in it the per-processor file.
    const QString plainInFirst = ScriptedTool::write(first.path(), QStringLiteral("mp4tags"), QStringLiteral("exit 0"));
    EXPECT_EQ(resolver.find(QStringLiteral("mp4tags")), plainInFirst);
    const QString archInFirst = ScriptedTool::write(first.path(), archName(), QStringLiteral("exit 0"));
    EXPECT_EQ(resolver.find(QStringLiteral("mp4tags")), archInFirst);
    EXPECT_EQ(resolver.findForArchitecture(QStringLiteral("mp4tags"), BinaryResolver::currentArchitecture()), archInFirst);
    EXPECT_EQ(resolver.findForArchitecture(QStringLiteral("mp4tags"),
                                           BinaryResolver::otherArchitecture(BinaryResolver::currentArchitecture())),
              std::nullopt);

    // A file that is not executable is no binary.
    QFile data(QDir(second.path()).filePath(QStringLiteral("mp4art")));
    ASSERT_TRUE(data.open(QIODevice::WriteOnly));
    data.close();
    EXPECT_EQ(resolver.find(QStringLiteral("mp4art")), std::nullopt);

    // Not in any folder: PATH is asked ("sh" is on every PATH).
    EXPECT_EQ(resolver.find(QStringLiteral("sh")), QStandardPaths::findExecutable(QStringLiteral("sh")));
}

TEST(BinaryResolverTest, DefaultFoldersHonourTheToolsDirectoryVariable)
{
    QTemporaryDir dir;
    const ScopedEnvironment env("FOLIVOX_TOOLS_DIR", dir.path());
    const QString tool = ScriptedTool::write(dir.path(), QStringLiteral("mp4chaps"), QStringLiteral("exit 0"));
    const BinaryResolver resolver;
    ASSERT_FALSE(resolver.toolsDirectories().isEmpty());
    EXPECT_EQ(resolver.toolsDirectories().first(), dir.path());
    EXPECT_EQ(resolver.resolve(QStringLiteral("mp4chaps")), tool);
}

TEST(BinaryResolverTest, MissingToolFailsWithTheBundleText)
{
    QTemporaryDir dir;
    const BinaryResolver resolver({dir.path()});
    try {
        resolver.resolve(QStringLiteral("mp4nonesuch"));
        FAIL() << "expected ToolLaunchError";
    } catch (const ToolLaunchError& e) {
        EXPECT_EQ(e.kind(), ToolLaunchError::Kind::notFound);
        EXPECT_EQ(e.description(), QStringLiteral("mp4nonesuch binary not found in app bundle"));
    }
}

TEST(BinaryResolverTest, RememberedFallbackWinsOnlyInsideTheResolversFolders)
{
    QTemporaryDir dir;
    QTemporaryDir elsewhere;
    ScriptedTool::write(dir.path(), archName(), QStringLiteral("exit 0"));
    const QString other = ScriptedTool::write(
        dir.path(), QStringLiteral("mp4tags-") + BinaryResolver::otherArchitecture(BinaryResolver::currentArchitecture()),
        QStringLiteral("exit 0"));
    const QString outside = ScriptedTool::write(elsewhere.path(), QStringLiteral("mp4tags"), QStringLiteral("exit 0"));
    BinaryResolver::rememberFallback(QStringLiteral("mp4tags"), other);
    EXPECT_EQ(BinaryResolver({dir.path()}).find(QStringLiteral("mp4tags")), other);
    EXPECT_EQ(BinaryResolver({elsewhere.path()}).find(QStringLiteral("mp4tags")), outside);
    BinaryResolver::forgetFallbacks();
    EXPECT_EQ(BinaryResolver({dir.path()}).find(QStringLiteral("mp4tags")),
              QDir(dir.path()).filePath(archName()));
}
