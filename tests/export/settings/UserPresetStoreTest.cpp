#include "export/settings/UserPresetStore.h"

#include "core/json/JsonReader.h"
#include "platform/AppPaths.h"
#include "platform/AppSettings.h"
#include "platform/Log.h"

#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

const QString kKey = QStringLiteral("export.userPresets");

// Rows as another writer left them: a good one, one whose settings name a
// codec this version does not know, one with no name, and another good one.
const char* kStoredRows = R"([
  {"id":"11111111-1111-1111-1111-111111111111","name":"Night listening","createdAt":"2024-05-01T10:00:00.000Z",
   "settings":{"outputFormat":"m4b","codec":"aacLC","channels":"mono","sampleRate":"auto","bitrateMode":"cbr",
               "passthroughPolicy":"auto","cbrBitrateKbps":64,"keepSourceBitrate":false,"splitMode":"off",
               "splitHours":8,"splitSizeMB":500,"snapToChapters":true,"coverSize":"px600","coverQuality":"q80"}},
  {"id":"22222222-2222-2222-2222-222222222222","name":"From the future","createdAt":"2024-05-02T10:00:00.000Z",
   "settings":{"outputFormat":"m4b","codec":"usac","channels":"mono","sampleRate":"auto","bitrateMode":"cbr",
               "passthroughPolicy":"auto","keepSourceBitrate":false,"splitMode":"off",
               "splitHours":8,"splitSizeMB":500,"snapToChapters":true,"coverSize":"px600","coverQuality":"q80"}},
  {"id":"33333333-3333-3333-3333-333333333333","createdAt":"2024-05-03T10:00:00.000Z","settings":{}},
  {"id":"44444444-4444-4444-4444-444444444444","name":"Car","createdAt":"2024-05-04T10:00:00.000Z",
   "settings":{"outputFormat":"mp3","codec":"aacLC","channels":"stereo","sampleRate":"hz44100","bitrateMode":"cbr",
               "passthroughPolicy":"disabled","cbrBitrateKbps":128,"keepSourceBitrate":false,"splitMode":"bySize",
               "splitHours":8,"splitSizeMB":200,"snapToChapters":false,"coverSize":"original","coverQuality":"original"}}
])";

class UserPresetStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        settings.remove(kKey);
        settings.sync();
    }

    void storeRaw(const QString& text)
    {
        settings.setValue(kKey, text);
        settings.sync();
    }

    static QStringList names(const std::vector<UserExportPreset>& presets)
    {
        QStringList out;
        for (const auto& p : presets)
            out << p.name;
        return out;
    }

    AppSettings settings;
};

} // namespace

TEST_F(UserPresetStoreTest, UndecodableRowsAreDroppedAndTheRestLoad)
{
    storeRaw(QString::fromUtf8(kStoredRows));
    LogCapture log;
    UserPresetStore store(settings);
    const auto presets = store.presets();
    EXPECT_EQ(names(presets), (QStringList{"Night listening", "Car"}));
    EXPECT_EQ(presets[0].settings.channels, ChannelSetting::mono);
    EXPECT_EQ(presets[0].settings.cbrBitrateKbps, 64);
    EXPECT_EQ(presets[1].settings.outputFormat, OutputFormat::mp3);
    EXPECT_EQ(presets[1].settings.splitSizeMB, 200);
    EXPECT_EQ(presets[1].createdAt, QDateTime::fromString(QStringLiteral("2024-05-04T10:00:00.000Z"), Qt::ISODateWithMs));
    EXPECT_EQ(log.count(QStringLiteral("[Presets] Dropped a saved preset")), 2);

    EXPECT_FALSE(UserPresetStore::LenientRow::fromJson(QJsonValue(42)).preset.has_value());
}

TEST_F(UserPresetStoreTest, SavingKeepsUnreadableRowsForALaterVersion)
{
    storeRaw(QString::fromUtf8(kStoredRows));
    {
        UserPresetStore store(settings);
        ASSERT_TRUE(store.add(QStringLiteral("Tiny"), ExportSettings()).has_value());
    }
    // A fresh settings object reads the file on disk again.
    AppSettings reopened;
    const QJsonArray rows = JsonReader::parseArray(reopened.value(kKey).toString().toUtf8());
    EXPECT_EQ(rows.size(), 5);
    QStringList ids;
    for (const QJsonValue& row : rows)
        ids << row.toObject().value(QStringLiteral("id")).toString();
    EXPECT_TRUE(ids.contains(QStringLiteral("22222222-2222-2222-2222-222222222222")));
    EXPECT_TRUE(ids.contains(QStringLiteral("33333333-3333-3333-3333-333333333333")));
    UserPresetStore again(reopened);
    EXPECT_EQ(names(again.presets()), (QStringList{"Night listening", "Car", "Tiny"}));
}

TEST_F(UserPresetStoreTest, GarbageInsteadOfAListGivesNoPresetsAndCanBeReplaced)
{
    storeRaw(QStringLiteral("this is not json ["));
    UserPresetStore store(settings);
    EXPECT_TRUE(store.presets().empty());
    ASSERT_TRUE(store.add(QStringLiteral("Fresh"), ExportSettings()).has_value());
    EXPECT_EQ(names(store.presets()), (QStringList{"Fresh"}));
}

TEST_F(UserPresetStoreTest, AddRenameRemoveWithUniqueNames)
{
    UserPresetStore store(settings);
    ExportSettings mono;
    mono.channels = ChannelSetting::mono;
    const auto first = store.add(QStringLiteral("  Commute  "), mono);
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(first->name, QStringLiteral("Commute")); // trimmed
    const auto second = store.add(QStringLiteral("Archive"), ExportSettings());
    ASSERT_TRUE(second.has_value());
    EXPECT_FALSE(store.add(QStringLiteral("commute"), ExportSettings()).has_value()); // case-insensitive clash
    EXPECT_FALSE(store.add(QStringLiteral("   "), ExportSettings()).has_value());
    EXPECT_TRUE(store.isNameTaken(QStringLiteral("ARCHIVE")));
    EXPECT_FALSE(store.isNameTaken(QStringLiteral("Archive"), second->id));

    using Kind = UserPresetStore::RenameResult::Kind;
    const auto taken = store.rename(first->id, QStringLiteral(" archive "));
    EXPECT_EQ(taken.kind, Kind::nameTaken);
    EXPECT_EQ(taken.takenName, QStringLiteral("archive"));
    EXPECT_EQ(store.preset(first->id)->name, QStringLiteral("Commute")); // left as it was

    EXPECT_EQ(store.rename(first->id, QStringLiteral("Commute ")).kind, Kind::unchanged);
    EXPECT_EQ(store.rename(first->id, QStringLiteral("")).kind, Kind::unchanged);
    EXPECT_EQ(store.rename(QUuid::createUuid(), QStringLiteral("Other")).kind, Kind::notFound);

    const auto renamed = store.rename(first->id, QStringLiteral("COMMUTE"));
    ASSERT_EQ(renamed.kind, Kind::renamed); // a change of case is a rename of itself
    EXPECT_EQ(renamed.preset->name, QStringLiteral("COMMUTE"));
    EXPECT_EQ(renamed.preset->id, first->id);
    EXPECT_EQ(renamed.preset->settings, mono);
    EXPECT_EQ(renamed.preset->createdAt, first->createdAt);

    ExportSettings changed;
    changed.cbrBitrateKbps = 96;
    EXPECT_TRUE(store.updateSettings(second->id, changed));
    EXPECT_FALSE(store.updateSettings(QUuid::createUuid(), changed));

    EXPECT_TRUE(store.remove(first->id));
    EXPECT_FALSE(store.remove(first->id));

    AppSettings reopened;
    UserPresetStore again(reopened);
    const auto left = again.presets();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].name, QStringLiteral("Archive"));
    EXPECT_EQ(left[0].settings.cbrBitrateKbps, 96);
    EXPECT_TRUE(QFile::exists(AppPaths::appSupportDir() + QStringLiteral("/settings.ini")));
}
