// SPDX-License-Identifier: GPL-3.0-or-later
// Runs a fuzz harness once over each file of its corpus, without libFuzzer: the regular build replays the corpus
// (every input that ever broke something among them) as part of the test suite. Arguments: files or folders.
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    QStringList files;
    for (int i = 1; i < argc; ++i) {
        const QString path = QFile::decodeName(argv[i]);
        if (QFileInfo(path).isDir()) {
            const QDir folder(path);
            for (const QString& name : folder.entryList(QDir::Files, QDir::Name))
                files.append(folder.filePath(name));
        } else {
            files.append(path);
        }
    }
    if (files.isEmpty()) {
        std::fprintf(stderr, "usage: %s corpus-folder-or-file...\n", argv[0]);
        return 2;
    }
    for (const QString& path : std::as_const(files)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
            return 1;
        }
        const QByteArray input = file.readAll();
        std::fprintf(stderr, "%s\n", qPrintable(path));
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.constData()), std::size_t(input.size()));
    }
    std::fprintf(stderr, "%lld inputs replayed\n", static_cast<long long>(files.size()));
    return 0;
}
