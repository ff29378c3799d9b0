// Parameter gathering: one frame -> tag record with derived geometry and colour model.
#include "cinedng/cd_getDNGParams.h"

#include <iostream>
#include <string>
#include <vector>

#include "cinedng/cd_DecodeDNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_parseTiff.h"

namespace cinedng {

namespace {

// Parse, read every tag, decode the colour model; the caller's record is replaced only on success.
int readFrame(const unsigned char* data, unsigned long long size, bool debug, cd_DNGTags& tags) {
    cd_parseTiff tiffReader;
    int status = tiffReader.configure(reinterpret_cast<const char*>(data), size);
    if (status != 0) {
        std::cerr << "error reading tiff, tiffReader.configure returns " << status << std::endl;
        return status;
    }

    cd_DNGTags dngTags;
    status = dngTags.readAllTags(tiffReader, debug);
    if (status != 0) {
        std::cerr << "error reading tags, dngTags.readAllTags returns " << status << std::endl;
        return status;
    }

    cd_DecodeDNGTags decoder;
    decoder.configure(dngTags, debug);

    // The two trailing arrays take the sizes of the decoder's results (9 and 3) and hold its values.
    dngTags.CameraToXYZMtx.resize(decoder.CameraToXYZMtx.size(), 0.0f);
    dngTags.CameraXYZWhitePoint.resize(decoder.CameraXYZWhitePoint.size(), 0.0f);
    dngTags.CameraToXYZMtx = decoder.CameraToXYZMtx;
    dngTags.CameraXYZWhitePoint = decoder.CameraXYZWhitePoint;

    tags = dngTags;
    return 0;
}

}  // namespace

int cd_getDNGParams::getParams(cd_CommandLineOptions& options, cd_DNGTags& tags) {
    // The look file is the whole path with one empty name: frame 0 is that very file.
    cd_imageLoader ibuf;
    ibuf.configure(options.LookFilename, std::vector<std::string>{""});
    const int status = ibuf.getImageObject(0);
    if (status != 0) {
        std::cerr << "error loading look image, ibuf.getImageObject returns " << status << std::endl;
        return status;
    }
    return readFrame(ibuf.buffer(), ibuf.imageSize(), options.VerboseMode, tags);
}

int cd_getDNGParams::getParamsForImageData(unsigned char* data, long size, cd_DNGTags& tags) {
    if (size < 0) {
        throw cd_exception("cd_getDNGParams - the image data size may not be negative");
    }
    return readFrame(data, static_cast<unsigned long long>(size), false, tags);
}

}  // namespace cinedng
