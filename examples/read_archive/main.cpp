#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <fl/i18n/utf8.h>
#include <foundation/storage/provider/ContainerProviderFactory.h>
#include <foundation/storage/provider/IProvider.h>
#include <storage/fileprovider/LocalFileProvider.h>

#include <filesystem>
#include <iostream>
#include <stdexcept>

using namespace foundation::storage::provider;

int main(int argc, char** argv) try {
    if (argc < 3)
        throw std::invalid_argument("usage: read_archive ARCHIVE BUNDLE...");
    auto framework = cppmicroservices::FrameworkFactory().NewFramework();
    framework.Start();
    auto context = framework.GetBundleContext();
    for (int i = 2; i < argc; ++i)
        for (auto& bundle : context.InstallBundles(argv[i]))
            bundle.Start();
    auto services = context.GetServiceReferences<ContainerProviderFactory>("(scheme=zip)");
    auto factory = context.GetService(services.at(0));

    auto path = std::filesystem::absolute(argv[1]).generic_u16string();
    StorageItem archive(storage::fileprovider::LocalFileProvider::create(), StorageIRI::fromLocalPath(path));
    auto provider = factory->createProvider(archive);
    auto root = StorageIRI::inContainer("zip", archive.getLocation(), u"/");
    for (auto entries = provider->listAllRecursive(root); entries->hasNext();) {
        entries->next();
        const FolderEntry entry = entries->current();
        std::cout << "== " << fl::i18n::toUtf8(entry.getName()) << '\n';
        if (entry.isFolder())
            continue;
        auto stream = provider->openReadStream(root.withPath(u"/" + entry.getName()));
        char bytes[4096];
        while (auto count = stream->read(bytes, sizeof bytes))
            std::cout.write(bytes, count);
    }
} catch (const std::exception& error) {
    std::cerr << "read_archive: " << error.what() << '\n';
    return 1;
}
