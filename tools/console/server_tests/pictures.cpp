// Tests of the pictures of elements (EThn) and libraries (ELTh).
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_thumbnails.h>

#include <citp_images/images.h>

#include <QSet>

#include "../decode/message_fields.h"
#include "framework.h"

namespace Console::ServerTests {
namespace {
const QSize Usual(128, 96);
// In hundredths.
constexpr int MaxDistortion = 15;

// Some elements of a media library, for which pictures are requested.
struct Subjects
{
    QString library;
    QJsonArray elements;

    unsigned char number(int i) const
    {
        return static_cast<unsigned char>(elements.at(i).toObject().value("element").toInt());
    }
    std::vector<unsigned char> some(int count) const
    {
        std::vector<unsigned char> numbers;
        for (int i = 0; i < count && i < elements.size(); ++i)
            numbers.push_back(number(i));
        return numbers;
    }
};

Subjects subjectsOf(Bench& bench)
{
    Subjects subjects;
    subjects.elements = knownElements(bench, 1, subjects.library);
    return subjects;
}

CITP::Msg_MSEX_ETHN pictureOfFirst(Bench& bench, const Subjects& subjects, const QSize& size, const QString& format)
{
    return CITP::Msg_MSEX_ETHN(
        bench.ask(picturesRequest(bench.minor(), 1, subjects.library, {subjects.number(0)}, size, format), "EThn"));
}

CITP::DecodedPicture decoded(const CITP::Msg_MSEX_Thumbnail_Response_Base& message)
{
    const CITP::Picture picture = CITP::pictureOf(message);
    expect(!picture.data.isEmpty(), "the picture is empty, or shorter than its size says");
    return CITP::decodePicture(picture, QSize(4096, 4096));
}

// The numbers of the elements whose pictures come.
QList<int> numbersAnswered(Bench& bench, const Subjects& subjects, const std::vector<unsigned char>& numbers,
                           int expected = 0)
{
    QList<int> answered;
    const QByteArray request = picturesRequest(bench.minor(), 1, subjects.library, numbers, Usual, "JPEG");
    for (const QByteArray& answer : bench.askAll(request, "EThn", expected))
        answered << CITP::Msg_MSEX_ETHN(answer).ElementNumber;
    return answered;
}

void comesAs(Bench& bench, const char* format)
{
    // Empty before MSEX 1.2.
    const QJsonArray offered = fieldsOf(bench.information()).value("thumbnailFormats").toArray();
    if (!offered.isEmpty() && !offered.contains(format))
        notRun(QString("the SInf does not offer %1").arg(format));
    const CITP::Msg_MSEX_ETHN message = pictureOfFirst(bench, subjectsOf(bench), Usual, format);
    expect(message.ThumbnailFormat.trimmed() == format,
           QString("a picture in %1 was requested, and comes in '%2'").arg(format, message.ThumbnailFormat));
    const CITP::DecodedPicture picture = decoded(message);
    expect(picture.problem.isEmpty(), picture.problem);
}

void comesAsJpeg(Bench& bench)
{
    comesAs(bench, "JPEG");
}

void comesAsPng(Bench& bench)
{
    comesAs(bench, "PNG");
}

void comesAsRgb8(Bench& bench)
{
    comesAs(bench, "RGB8");
}

void hasThreeBytesPerPixel(Bench& bench)
{
    const CITP::Msg_MSEX_ETHN message = pictureOfFirst(bench, subjectsOf(bench), QSize(33, 17), "RGB8");
    if (message.ThumbnailFormat != "RGB8")
        notRun("it does not come in RGB8");
    const qint64 pixels = qint64(message.ThumbnailWidth) * message.ThumbnailHeight;
    expect(message.ThumbnailBuffer.size() == 3 * pixels, QString("an RGB8 picture of %1 x %2 pixels has %3 bytes")
                                                             .arg(message.ThumbnailWidth)
                                                             .arg(message.ThumbnailHeight)
                                                             .arg(message.ThumbnailBuffer.size()));
}

void saysItsSize(Bench& bench)
{
    const CITP::Msg_MSEX_ETHN message = pictureOfFirst(bench, subjectsOf(bench), Usual, "JPEG");
    const QSize told(message.ThumbnailWidth, message.ThumbnailHeight);
    const CITP::DecodedPicture picture = decoded(message);
    if (!picture.problem.isEmpty())
        notRun(picture.problem);
    expect(picture.size == told, QString("it is said to be %1 x %2 pixels, and has %3 x %4")
                                     .arg(told.width())
                                     .arg(told.height())
                                     .arg(picture.size.width())
                                     .arg(picture.size.height()));
}

void fitsInto(Bench& bench, const QSize& size)
{
    const CITP::Msg_MSEX_ETHN message = pictureOfFirst(bench, subjectsOf(bench), size, "JPEG");
    expect(message.ThumbnailWidth <= size.width() && message.ThumbnailHeight <= size.height(),
           QString("%1 x %2 pixels were requested, and %3 x %4 come")
               .arg(size.width())
               .arg(size.height())
               .arg(message.ThumbnailWidth)
               .arg(message.ThumbnailHeight));
}

void fits(Bench& bench)
{
    fitsInto(bench, Usual);
}

void fitsOddSizes(Bench& bench)
{
    for (const QSize& size : {QSize(1, 1), QSize(7, 33), QSize(61, 9), QSize(127, 95)})
        fitsInto(bench, size);
}

void comesLarge(Bench& bench)
{
    const CITP::Msg_MSEX_ETHN message = pictureOfFirst(bench, subjectsOf(bench), QSize(1024, 768), "JPEG");
    const CITP::DecodedPicture picture = decoded(message);
    expect(picture.problem.isEmpty(), picture.problem);
}

void keepsProportions(Bench& bench)
{
    const Subjects subjects = subjectsOf(bench);
    const QJsonObject element = subjects.elements.first().toObject();
    const int width = element.value("width").toInt();
    const int height = element.value("height").toInt();
    if (width == 0 || height == 0)
        notRun("the size of the element is not known");
    for (const QSize& size : {Usual, QSize(200, 50), QSize(50, 200)}) {
        const CITP::Msg_MSEX_ETHN message = pictureOfFirst(bench, subjects, size, "JPEG");
        const double wanted = static_cast<double>(width) / height;
        const double found = static_cast<double>(message.ThumbnailWidth) / qMax<int>(1, message.ThumbnailHeight);
        // A side of few pixels can only come near its proportions.
        const bool isRounded = qAbs(message.ThumbnailHeight - message.ThumbnailWidth / wanted) <= 1 ||
                               qAbs(message.ThumbnailWidth - message.ThumbnailHeight * wanted) <= 1;
        expect(isRounded || qAbs(found / wanted - 1) * 100 < MaxDistortion,
               QString("the element has %1 x %2 pixels, and its picture %3 x %4")
                   .arg(width)
                   .arg(height)
                   .arg(message.ThumbnailWidth)
                   .arg(message.ThumbnailHeight));
    }
}

void namesTheElement(Bench& bench)
{
    const Subjects subjects = subjectsOf(bench);
    const CITP::Msg_MSEX_ETHN message = pictureOfFirst(bench, subjects, Usual, "JPEG");
    expect(message.ElementNumber == subjects.number(0), QString("a GETh for element %1 is answered with element %2")
                                                            .arg(subjects.number(0))
                                                            .arg(message.ElementNumber));
}

void namesItsLibrary(Bench& bench)
{
    const Subjects subjects = subjectsOf(bench);
    const CITP::Msg_MSEX_ETHN message = pictureOfFirst(bench, subjects, Usual, "JPEG");
    expect(message.LibraryId == subjects.library,
           QString("a GETh for library %1 is answered with library %2").arg(subjects.library, message.LibraryId));
}

void namesItsType(Bench& bench)
{
    const int type = pictureOfFirst(bench, subjectsOf(bench), Usual, "JPEG").LibraryType;
    expect(type == 1, QString("a GETh for type 1 is answered with type %1").arg(type));
}

void answersEachNumber(Bench& bench)
{
    const Subjects subjects = subjectsOf(bench);
    const std::vector<unsigned char> asked = subjects.some(8);
    const QList<int> answered = numbersAnswered(bench, subjects, asked, static_cast<int>(asked.size()));
    for (const unsigned char number : asked)
        expect(answered.count(number) == 1,
               QString("of a GETh for %1 elements, the picture of element %2 comes %3 times")
                   .arg(asked.size())
                   .arg(number)
                   .arg(answered.count(number)));
    expect(answered.size() == static_cast<int>(asked.size()),
           QString("%1 pictures were requested, and %2 come").arg(asked.size()).arg(answered.size()));
}

void answersForAll(Bench& bench)
{
    const Subjects subjects = subjectsOf(bench);
    const QList<int> answered = numbersAnswered(bench, subjects, {}, static_cast<int>(subjects.elements.size()));
    expect(answered.size() == subjects.elements.size(), QString("library %1 has %2 elements, and %3 pictures come")
                                                            .arg(subjects.library)
                                                            .arg(subjects.elements.size())
                                                            .arg(answered.size()));
}

void sendsNoUnknownPicture(Bench& bench)
{
    const Subjects subjects = subjectsOf(bench);
    const unsigned char unknown = unusedElement(subjects.elements);
    for (const int number : numbersAnswered(bench, subjects, {unknown}))
        fail(QString("a GETh for element %1, which does not exist, is answered with a picture of element %2")
                 .arg(unknown)
                 .arg(number));
}

void sendsNoUnknownLibrary(Bench& bench)
{
    Subjects subjects;
    subjects.library = unknownLibrary(bench, 1);
    expect(numbersAnswered(bench, subjects, {0}).isEmpty(),
           QString("a GETh for library %1, which is not listed, is answered with a picture").arg(subjects.library));
}

// --- Libraries -------------------------------------------------------------------------------------------------------

std::vector<QString> topLibraries(Bench& bench)
{
    std::vector<QString> ids;
    for (const QJsonValue library : knownLibraries(bench, 1))
        ids.push_back(library.toObject().value("library").toString());
    if (ids.empty())
        notRun("it has no media libraries");
    return ids;
}

QStringList coversAnswered(Bench& bench, const std::vector<QString>& libraries, int expected = 0)
{
    QStringList answered;
    const QByteArray request = libraryPicturesRequest(bench.minor(), 1, libraries, Usual, "JPEG");
    for (const QByteArray& answer : bench.askAll(request, "ELTh", expected))
        answered << CITP::Msg_MSEX_ELTH(answer).LibraryId;
    return answered;
}

void showsALibrary(Bench& bench)
{
    const QString id = topLibraries(bench).front();
    const CITP::Msg_MSEX_ELTH message(bench.ask(libraryPicturesRequest(bench.minor(), 1, {id}, Usual, "JPEG"), "ELTh"));
    expect(message.LibraryId == id,
           QString("a GELT for library %1 is answered with library %2").arg(id, message.LibraryId));
    const CITP::DecodedPicture picture = decoded(message);
    expect(picture.problem.isEmpty(), picture.problem);
}

void showsLibrariesFitting(Bench& bench)
{
    const QString id = topLibraries(bench).front();
    const CITP::Msg_MSEX_ELTH message(bench.ask(libraryPicturesRequest(bench.minor(), 1, {id}, Usual, "JPEG"), "ELTh"));
    expect(message.ThumbnailWidth <= Usual.width() && message.ThumbnailHeight <= Usual.height(),
           QString("%1 x %2 pixels were requested, and %3 x %4 come")
               .arg(Usual.width())
               .arg(Usual.height())
               .arg(message.ThumbnailWidth)
               .arg(message.ThumbnailHeight));
}

void showsEachLibrary(Bench& bench)
{
    const std::vector<QString> asked = topLibraries(bench);
    const QStringList answered = coversAnswered(bench, asked, static_cast<int>(asked.size()));
    for (const QString& id : asked)
        expect(answered.count(id) == 1, QString("of a GELT for %1 libraries, the picture of library %2 comes %3 times")
                                            .arg(asked.size())
                                            .arg(id)
                                            .arg(answered.count(id)));
}

void showsAllLibraries(Bench& bench)
{
    const std::vector<QString> libraries = topLibraries(bench);
    const QStringList answered = coversAnswered(bench, {}, static_cast<int>(libraries.size()));
    for (const QString& id : libraries)
        expect(answered.contains(id), QString("a GELT for all libraries is not answered for library %1").arg(id));
}

void showsNoUnknownLibrary(Bench& bench)
{
    const QString id = unknownLibrary(bench, 1);
    const QStringList answered = coversAnswered(bench, {id});
    expect(answered.isEmpty(), QString("a GELT for library %1, which is not listed, is answered with library %2")
                                   .arg(id, answered.join(", ")));
}
} // namespace

Area pictureTests()
{
    return {
        "pictures",
        {
            {701, "pictures come in JPEG", "sends a GETh for one element in JPEG",
             "an EThn in JPEG that can be decoded: consoles request it by default", comesAsJpeg, TestCase::EachVersion},
            {702, "pictures come in PNG", "sends a GETh for one element in PNG",
             "an EThn in PNG that can be decoded: consoles expect the format requested", comesAsPng,
             TestCase::EachVersion},
            {703, "pictures come in RGB8", "sends a GETh for one element in RGB8",
             "an EThn in RGB8: every server and console knows this format", comesAsRgb8, TestCase::EachVersion},
            {704, "RGB8 has three bytes for each pixel", "sends a GETh for 33 x 17 pixels in RGB8",
             "three times width times height bytes in the EThn: consoles show others slanted", hasThreeBytesPerPixel,
             TestCase::EachVersion},
            {705, "a picture has the size that it says", "sends a GETh for one element, decodes the picture",
             "width and height of the EThn: consoles reserve the place by them", saysItsSize, TestCase::EachVersion},
            {706, "pictures are not larger than requested", "sends a GETh for 128 x 96 pixels",
             "at most this size in the EThn: consoles request what they can show", fits, TestCase::EachVersion},
            {707, "odd sizes are kept, too", "sends a GETh for 1 x 1, 7 x 33, 61 x 9 and 127 x 95 pixels",
             "at most this size in each EThn: consoles request what they can show", fitsOddSizes,
             TestCase::EachVersion},
            {708, "a large picture comes whole", "sends a GETh for 1024 x 768 pixels",
             "an EThn with a picture of at most 65535 bytes that can be decoded: its size field holds no more",
             comesLarge, TestCase::EachVersion},
            {709, "pictures keep their proportions", "sends a GETh for a wide, a high and a usual size",
             "the proportions in the MEIn, within 15 % or a pixel: consoles ask for them to be kept", keepsProportions,
             TestCase::EachVersion},
            {710, "a picture names its element", "sends a GETh for one element",
             "the element of the GETh in the EThn: consoles sort pictures by it", namesTheElement,
             TestCase::EachVersion},
            {711, "a picture names its library", "sends a GETh for one element",
             "the library of the GETh in the EThn: consoles sort pictures by it", namesItsLibrary,
             TestCase::EachVersion},
            {712, "a picture names its library type", "sends a GETh for one element of a media library",
             "type 1 in the EThn: consoles sort pictures by it", namesItsType, TestCase::EachVersion},
            {713, "several pictures come for one request", "sends a GETh for up to 8 elements",
             "an EThn for each element, once: consoles ask for a page at a time", answersEachNumber,
             TestCase::EachVersion},
            {714, "all pictures come for one request", "sends a GETh without numbers",
             "an EThn for each element of the library: without numbers, all are requested", answersForAll,
             TestCase::EachVersion},
            {715, "no picture comes of an unknown element", "sends a GETh for the number of no element",
             "no EThn: a picture of something else would be shown", sendsNoUnknownPicture, TestCase::EachVersion},
            {716, "no picture comes of an unknown library", "sends a GETh for a library that is not listed",
             "no EThn: a picture of something else would be shown", sendsNoUnknownLibrary, TestCase::EachVersion},
            {721, "libraries have pictures", "sends a GELT for one library in JPEG",
             "an ELTh of that library that can be decoded: consoles show it", showsALibrary, TestCase::EachVersion},
            {722, "pictures of libraries are not larger than requested", "sends a GELT for 128 x 96 pixels",
             "at most this size in the ELTh: consoles request what they can show", showsLibrariesFitting,
             TestCase::EachVersion},
            {723, "pictures of several libraries come for one request", "sends a GELT for all libraries by number",
             "an ELTh for each library, once: consoles ask for a page at a time", showsEachLibrary,
             TestCase::EachVersion},
            {724, "pictures of all libraries come for one request", "sends a GELT without libraries",
             "an ELTh for each top-level library: without libraries, all are requested", showsAllLibraries,
             TestCase::EachVersion},
            {725, "no picture comes of a library that does not exist", "sends a GELT for a library that is not listed",
             "no ELTh: a picture of something else would be shown", showsNoUnknownLibrary, TestCase::EachVersion},
        },
    };
}
} // namespace Console::ServerTests
