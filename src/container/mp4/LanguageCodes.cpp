#include "container/mp4/LanguageCodes.h"

#include <QHash>
#include <QLocale>
#include <QSet>

namespace folivox {

namespace {
struct Language {
    const char* alpha2;
    const char* alpha3; // ISO 639-2/T, the form MP4 files use
    const char* name;   // English name, lowercase
};

// ISO 639-1 with its ISO 639-2/T code and English name.
constexpr Language kLanguages[] = {
    {"aa", "aar", "afar"}, {"ab", "abk", "abkhazian"}, {"ae", "ave", "avestan"}, {"af", "afr", "afrikaans"},
    {"ak", "aka", "akan"}, {"am", "amh", "amharic"}, {"an", "arg", "aragonese"}, {"ar", "ara", "arabic"},
    {"as", "asm", "assamese"}, {"av", "ava", "avaric"}, {"ay", "aym", "aymara"}, {"az", "aze", "azerbaijani"},
    {"ba", "bak", "bashkir"}, {"be", "bel", "belarusian"}, {"bg", "bul", "bulgarian"}, {"bh", "bih", "bihari"},
    {"bi", "bis", "bislama"}, {"bm", "bam", "bambara"}, {"bn", "ben", "bengali"}, {"bo", "bod", "tibetan"},
    {"br", "bre", "breton"}, {"bs", "bos", "bosnian"}, {"ca", "cat", "catalan"}, {"ce", "che", "chechen"},
    {"ch", "cha", "chamorro"}, {"co", "cos", "corsican"}, {"cr", "cre", "cree"}, {"cs", "ces", "czech"},
    {"cu", "chu", "church slavic"}, {"cv", "chv", "chuvash"}, {"cy", "cym", "welsh"}, {"da", "dan", "danish"},
    {"de", "deu", "german"}, {"dv", "div", "divehi"}, {"dz", "dzo", "dzongkha"}, {"ee", "ewe", "ewe"},
    {"el", "ell", "greek"}, {"en", "eng", "english"}, {"eo", "epo", "esperanto"}, {"es", "spa", "spanish"},
    {"et", "est", "estonian"}, {"eu", "eus", "basque"}, {"fa", "fas", "persian"}, {"ff", "ful", "fulah"},
    {"fi", "fin", "finnish"}, {"fj", "fij", "fijian"}, {"fo", "fao", "faroese"}, {"fr", "fra", "french"},
    {"fy", "fry", "western frisian"}, {"ga", "gle", "irish"}, {"gd", "gla", "scottish gaelic"}, {"gl", "glg", "galician"},
    {"gn", "grn", "guarani"}, {"gu", "guj", "gujarati"}, {"gv", "glv", "manx"}, {"ha", "hau", "hausa"},
    {"he", "heb", "hebrew"}, {"hi", "hin", "hindi"}, {"ho", "hmo", "hiri motu"}, {"hr", "hrv", "croatian"},
    {"ht", "hat", "haitian"}, {"hu", "hun", "hungarian"}, {"hy", "hye", "armenian"}, {"hz", "her", "herero"},
    {"ia", "ina", "interlingua"}, {"id", "ind", "indonesian"}, {"ie", "ile", "interlingue"}, {"ig", "ibo", "igbo"},
    {"ii", "iii", "sichuan yi"}, {"ik", "ipk", "inupiaq"}, {"io", "ido", "ido"}, {"is", "isl", "icelandic"},
    {"it", "ita", "italian"}, {"iu", "iku", "inuktitut"}, {"ja", "jpn", "japanese"}, {"jv", "jav", "javanese"},
    {"ka", "kat", "georgian"}, {"kg", "kon", "kongo"}, {"ki", "kik", "kikuyu"}, {"kj", "kua", "kuanyama"},
    {"kk", "kaz", "kazakh"}, {"kl", "kal", "kalaallisut"}, {"km", "khm", "khmer"}, {"kn", "kan", "kannada"},
    {"ko", "kor", "korean"}, {"kr", "kau", "kanuri"}, {"ks", "kas", "kashmiri"}, {"ku", "kur", "kurdish"},
    {"kv", "kom", "komi"}, {"kw", "cor", "cornish"}, {"ky", "kir", "kyrgyz"}, {"la", "lat", "latin"},
    {"lb", "ltz", "luxembourgish"}, {"lg", "lug", "ganda"}, {"li", "lim", "limburgish"}, {"ln", "lin", "lingala"},
    {"lo", "lao", "lao"}, {"lt", "lit", "lithuanian"}, {"lu", "lub", "luba-katanga"}, {"lv", "lav", "latvian"},
    {"mg", "mlg", "malagasy"}, {"mh", "mah", "marshallese"}, {"mi", "mri", "maori"}, {"mk", "mkd", "macedonian"},
    {"ml", "mal", "malayalam"}, {"mn", "mon", "mongolian"}, {"mr", "mar", "marathi"}, {"ms", "msa", "malay"},
    {"mt", "mlt", "maltese"}, {"my", "mya", "burmese"}, {"na", "nau", "nauru"}, {"nb", "nob", "norwegian bokmål"},
    {"nd", "nde", "north ndebele"}, {"ne", "nep", "nepali"}, {"ng", "ndo", "ndonga"}, {"nl", "nld", "dutch"},
    {"nn", "nno", "norwegian nynorsk"}, {"no", "nor", "norwegian"}, {"nr", "nbl", "south ndebele"}, {"nv", "nav", "navajo"},
    {"ny", "nya", "chichewa"}, {"oc", "oci", "occitan"}, {"oj", "oji", "ojibwa"}, {"om", "orm", "oromo"},
    {"or", "ori", "oriya"}, {"os", "oss", "ossetian"}, {"pa", "pan", "punjabi"}, {"pi", "pli", "pali"},
    {"pl", "pol", "polish"}, {"ps", "pus", "pashto"}, {"pt", "por", "portuguese"}, {"qu", "que", "quechua"},
    {"rm", "roh", "romansh"}, {"rn", "run", "rundi"}, {"ro", "ron", "romanian"}, {"ru", "rus", "russian"},
    {"rw", "kin", "kinyarwanda"}, {"sa", "san", "sanskrit"}, {"sc", "srd", "sardinian"}, {"sd", "snd", "sindhi"},
    {"se", "sme", "northern sami"}, {"sg", "sag", "sango"}, {"si", "sin", "sinhala"}, {"sk", "slk", "slovak"},
    {"sl", "slv", "slovenian"}, {"sm", "smo", "samoan"}, {"sn", "sna", "shona"}, {"so", "som", "somali"},
    {"sq", "sqi", "albanian"}, {"sr", "srp", "serbian"}, {"ss", "ssw", "swati"}, {"st", "sot", "southern sotho"},
    {"su", "sun", "sundanese"}, {"sv", "swe", "swedish"}, {"sw", "swa", "swahili"}, {"ta", "tam", "tamil"},
    {"te", "tel", "telugu"}, {"tg", "tgk", "tajik"}, {"th", "tha", "thai"}, {"ti", "tir", "tigrinya"},
    {"tk", "tuk", "turkmen"}, {"tl", "tgl", "tagalog"}, {"tn", "tsn", "tswana"}, {"to", "ton", "tongan"},
    {"tr", "tur", "turkish"}, {"ts", "tso", "tsonga"}, {"tt", "tat", "tatar"}, {"tw", "twi", "twi"},
    {"ty", "tah", "tahitian"}, {"ug", "uig", "uyghur"}, {"uk", "ukr", "ukrainian"}, {"ur", "urd", "urdu"},
    {"uz", "uzb", "uzbek"}, {"ve", "ven", "venda"}, {"vi", "vie", "vietnamese"}, {"vo", "vol", "volapük"},
    {"wa", "wln", "walloon"}, {"wo", "wol", "wolof"}, {"xh", "xho", "xhosa"}, {"yi", "yid", "yiddish"},
    {"yo", "yor", "yoruba"}, {"za", "zha", "zhuang"}, {"zh", "zho", "chinese"}, {"zu", "zul", "zulu"},
};

// Other names people write for a language: alternative English names and
// the languages' own names.
constexpr std::pair<const char*, const char*> kOtherNames[] = {
    {"castilian", "spa"}, {"flemish", "nld"}, {"farsi", "fas"}, {"moldavian", "ron"}, {"moldovan", "ron"},
    {"gaelic", "gla"}, {"mandarin", "zho"}, {"cantonese", "zho"}, {"filipino", "fil"}, {"brazilian", "por"},
    {"brazilian portuguese", "por"}, {"american english", "eng"}, {"british english", "eng"}, {"bokmål", "nob"},
    {"bokmal", "nob"}, {"nynorsk", "nno"}, {"panjabi", "pan"}, {"kirghiz", "kir"}, {"uighur", "uig"},
    {"sinhalese", "sin"}, {"pushto", "pus"}, {"letzeburgesch", "ltz"}, {"greek, modern", "ell"}, {"modern greek", "ell"},
    {"deutsch", "deu"}, {"français", "fra"}, {"francais", "fra"}, {"español", "spa"}, {"espanol", "spa"},
    {"italiano", "ita"}, {"nederlands", "nld"}, {"português", "por"}, {"portugues", "por"}, {"polski", "pol"},
    {"svenska", "swe"}, {"dansk", "dan"}, {"norsk", "nor"}, {"suomi", "fin"}, {"čeština", "ces"}, {"cesky", "ces"},
    {"magyar", "hun"}, {"română", "ron"}, {"türkçe", "tur"}, {"русский", "rus"}, {"українська", "ukr"},
    {"ελληνικά", "ell"}, {"日本語", "jpn"}, {"中文", "zho"}, {"한국어", "kor"}, {"עברית", "heb"}, {"العربية", "ara"},
};

// ISO 639-2/B codes, which differ from /T for a few languages; both are valid in files.
constexpr const char* kBibliographic[] = {"alb", "arm", "baq", "tib", "bur", "chi", "cze", "dut", "fre", "geo", "ger",
                                          "gre", "ice", "mac", "mao", "may", "per", "rum", "slo", "wel"};
// Codes with no two-letter form that books still carry.
constexpr const char* kExtraCodes[] = {"fil", "und", "mul", "zxx", "mis", "haw", "sco", "gsw", "nds", "ast", "ceb", "yue"};

struct Tables {
    QHash<QString, QString> byAlpha2;
    QHash<QString, QString> byName;
    QSet<QString> alpha3;
};

const Tables& tables()
{
    static const Tables t = [] {
        Tables r;
        for (const Language& l : kLanguages) {
            const QString code = QString::fromLatin1(l.alpha3);
            r.byAlpha2.insert(QString::fromLatin1(l.alpha2), code);
            r.byName.insert(QString::fromUtf8(l.name), code);
            r.alpha3.insert(code);
        }
        for (const auto& [name, code] : kOtherNames)
            r.byName.insert(QString::fromUtf8(name), QString::fromLatin1(code));
        for (const char* code : kBibliographic)
            r.alpha3.insert(QString::fromLatin1(code));
        for (const char* code : kExtraCodes)
            r.alpha3.insert(QString::fromLatin1(code));
        return r;
    }();
    return t;
}

bool isSeparator(QChar c)
{
    return c == u'-' || c == u'_' || c == u'.' || c == u',' || c == u';' || c == u'/' || c == u'(' || c == u'@'
        || c.isSpace();
}
} // namespace

bool LanguageCodes::isValidISO6392(const QString& code)
{
    if (code.size() != 3)
        return false;
    for (QChar c : code)
        if (c < u'a' || c > u'z')
            return false;
    return true;
}

std::optional<std::uint16_t> LanguageCodes::pack(const QString& code)
{
    if (!isValidISO6392(code))
        return std::nullopt;
    return std::uint16_t(((code[0].unicode() - 0x60) << 10) | ((code[1].unicode() - 0x60) << 5) | (code[2].unicode() - 0x60));
}

std::optional<QString> LanguageCodes::unpack(std::uint16_t packed)
{
    QString s;
    for (int shift = 10; shift >= 0; shift -= 5) {
        const int v = (packed >> shift) & 0x1F;
        if (v < 1 || v > 26)
            return std::nullopt;
        s.append(QChar(char16_t(0x60 + v)));
    }
    return s;
}

std::optional<QString> LanguageCodes::toISO6392(const QString& text)
{
    const Tables& t = tables();
    const QString lowered = text.trimmed().toLower();
    if (lowered.isEmpty())
        return std::nullopt;
    if (auto it = t.byName.constFind(lowered); it != t.byName.constEnd())
        return it.value();

    qsizetype cut = 0;
    while (cut < lowered.size() && !isSeparator(lowered[cut]))
        ++cut;
    const QString head = lowered.left(cut);
    if (head.size() == 2) {
        if (auto it = t.byAlpha2.constFind(head); it != t.byAlpha2.constEnd())
            return it.value();
        return std::nullopt;
    }
    if (head.size() == 3 && t.alpha3.contains(head))
        return head;
    if (auto it = t.byName.constFind(head); it != t.byName.constEnd())
        return it.value();
    return std::nullopt;
}

QString LanguageCodes::chapterTrackLanguage(const std::optional<QString>& bookLanguage)
{
    return chapterTrackLanguage(bookLanguage, QLocale::system().uiLanguages());
}

QString LanguageCodes::chapterTrackLanguage(const std::optional<QString>& bookLanguage, const QStringList& preferredLanguages)
{
    if (bookLanguage) {
        if (isValidISO6392(*bookLanguage))
            return *bookLanguage;
        if (auto code = toISO6392(*bookLanguage))
            return *code;
    }
    for (const QString& preferred : preferredLanguages) {
        const auto code = toISO6392(preferred);
        if (code && *code != QLatin1String("und"))
            return *code;
    }
    return QStringLiteral("eng");
}

} // namespace folivox
