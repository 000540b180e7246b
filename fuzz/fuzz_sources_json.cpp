// sources.json on arbitrary bytes. Every source that loads must be usable: it maps a last
// price, its request URL for a few symbols never shows the API key, and it reads a small
// answer without a crash (an html source runs the user's expressions on it). Every
// problem names the file.

#include "FuzzSources.h"

using namespace kestrova;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const quotes::SourceFile file = quotes::parseSourcesJson(fuzz::bytesOf(data, size));
    for (const QString& problem : file.problems)
        fuzzCheck(problem.startsWith(QLatin1String("sources.json")));
    const QString key = QStringLiteral("k3y-n0t-sh0wn");
    const QByteArray body = "Symbol,Close\r\nIBM,1.5\r\n{\"c\":1.5,\"t\":0} <td>Last: 1.5</td>";
    for (const quotes::SourceDefinition& source : file.sources) {
        fuzzCheck(!source.name.isEmpty());
        fuzzCheck(!source.fields[size_t(quotes::SourceField::Last)].isEmpty());
        fuzzCheck(file.find(source.name) != nullptr);
        QStringList symbols;
        for (const QString& ticker : {QStringLiteral("IBM"), QStringLiteral("^DJI"), QStringLiteral("ES Z6")})
            symbols << quotes::sourceSymbol(source, ticker);
        if (!source.batch)
            symbols = symbols.mid(0, 1);
        QString shown;
        quotes::sourceRequestUrl(source, symbols, key, &shown);
        // (a template may hold the very text of the key; that is not the key shown)
        fuzzCheck(!shown.contains(key) || source.url.contains(key));
        fuzz::checkAnswer(quotes::parseSourceAnswer(source, body, symbols), symbols);
    }
    return 0;
}
