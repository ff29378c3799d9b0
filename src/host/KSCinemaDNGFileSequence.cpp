#include "cinedng/KSCinemaDNGFileSequence.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <valarray>

#include "cinedng/KRColorTemperature.h"
#include "cinedng/KSDataTypeConverter.h"
#include "cinedng/KSLog.h"
#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_fullColorMatrix.h"
#include "cinedng/matrixOps.h"

namespace cinedng {

namespace {

const char* const kClassName = "KSCinemaDNGFileSequence";
const char* const kExceptionLog = "### %@::%@ ### an exception occured: \n\t%s";

void logException(const char* selector, const char* message) {
    KSLog(kExceptionLog, std::string(kClassName), std::string(selector), message);
}

// The largest of the elements, folded from the first: an earlier NaN is passed over (the next
// element replaces it), a NaN in the last place is the result.
float largestElement(const std::valarray<float>& v) {
    if (v.size() == 0) return 0.0f;
    float m = v[0];
    for (size_t i = 1; i < v.size(); ++i) m = (v[i] < m) ? m : v[i];
    return m;
}

// The text of a string field up to its first zero byte, as a host string.
KSValuePtr stringValue(const std::string& field) {
    const size_t zero = field.find('\0');
    return KSValue::stringWithString(zero == std::string::npos ? field : field.substr(0, zero));
}

}  // namespace

std::shared_ptr<KSCinemaDNGFileSequence> KSCinemaDNGFileSequence::initWithFilenames(
    const std::vector<std::string>& paths) {
    auto seq = std::make_shared<KSCinemaDNGFileSequence>(Construct{});
    seq->filenames_ = std::make_shared<const std::vector<std::string>>(paths);
    seq->imageData_ = nullptr;
    seq->context_ = KSCinemaDNGContext::initWithFilenames(paths);
    if (!seq->context_) return nullptr;
    seq->metaDataDict_ = nullptr;
    seq->metaDataChanged_ = false;
    return seq;
}

std::shared_ptr<KSCinemaDNGFileSequence> KSCinemaDNGFileSequence::initWithImageData(
    const std::vector<std::shared_ptr<KSData>>& buffers) {
    auto seq = std::make_shared<KSCinemaDNGFileSequence>(Construct{});
    seq->imageData_ = std::make_shared<const std::vector<std::shared_ptr<KSData>>>(buffers);
    seq->filenames_ = nullptr;
    seq->context_ = KSCinemaDNGContext::initWithImageData(buffers);
    if (!seq->context_) return nullptr;
    seq->metaDataDict_ = nullptr;
    seq->metaDataChanged_ = false;
    return seq;
}

KSCinemaDNGFileSequence::~KSCinemaDNGFileSequence() {
    // The context before the source arrays: the loader may still refer to the host's buffers.
    context_ = nullptr;
    filenames_ = nullptr;
    imageData_ = nullptr;
    metaDataDict_ = nullptr;
}

float KSCinemaDNGFileSequence::blackLevel() const { return context_->blackLevel(); }

void KSCinemaDNGFileSequence::setBlackLevel(float v) {
    context_->setBlackLevel(v);
    metaDataChanged_ = true;
}

KSSize KSCinemaDNGFileSequence::rawImageSize() {
    auto dict = metadata();
    auto w = dict->objectForKey("imageWidth");
    auto h = dict->objectForKey("imageHeight");
    return KSSize{w ? w->doubleValue() : 0.0, h ? h->doubleValue() : 0.0};
}

std::shared_ptr<KSData> KSCinemaDNGFileSequence::rawImageDataForIndex(int index) {
    const KSSize size = rawImageSize();
    const size_t n = static_cast<size_t>(size.width * size.height);
    // Zeroed so that the floats outside the converter's rows read 0; owned by the returned object.
    void* bytes = std::calloc(n > 0 ? n : 1, sizeof(float));
    if (!bytes) {
        logException("rawImageDataForIndex:", "KSCinemaDNGFileSequence - the frame buffer could not be allocated");
        return nullptr;
    }
    writeRawImageDataForIndex(index, static_cast<float*>(bytes), n);
    return KSData::dataWithBytesNoCopy(bytes, n * sizeof(float), true);
}

void KSCinemaDNGFileSequence::writeRawImageDataForIndex(int index, float* buffer) {
    const char* const selector = "writeRawImageDataForIndex:intoBuffer:";
    try {
        cd_ClipConverter* converter = context_->converter();
        converter->setRawImagePixels(buffer);
        int status = 0;
        if (filenames_) {
            status = converter->convertImage(index);
        } else if (imageData_) {
            status = converter->convertImageFromImageDataWithIndex(index);
        }
        converter->setRawImagePixels(nullptr);  // the caller's buffer is not kept beyond the call
        if (status != 0) KSLog("ERROR: %d", status);
    } catch (const std::exception& e) {
        context_->converter()->setRawImagePixels(nullptr);
        logException(selector, e.what());
    } catch (...) {
        context_->converter()->setRawImagePixels(nullptr);
        logException(selector, "unknown exception");
    }
}

void KSCinemaDNGFileSequence::writeRawImageDataForIndex(int index, float* buffer, size_t capacityInFloats) {
    const cd_DNGTags* tags = context_->dngTags();
    const uint64_t needed = static_cast<uint64_t>(tags->inputRows > 0 ? tags->inputRows : 0) *
                            static_cast<uint64_t>(tags->inputCols > 0 ? tags->inputCols : 0);
    if (capacityInFloats < needed) {
        logException("writeRawImageDataForIndex:intoBuffer:",
                     "KSCinemaDNGFileSequence - the buffer is smaller than the frame");
        return;
    }
    writeRawImageDataForIndex(index, buffer);
}

float* KSCinemaDNGFileSequence::rgbBufferFromRawBuffer(const float* buffer, KSSize size) {
    const char* const selector = "rgbBufferFromRawBuffer:ofSize:";
    const double wd = size.width, hd = size.height;
    if (!(wd >= 1.0) || !(hd >= 1.0) || wd * hd * 16.0 > 9.0e18) {
        logException(selector, "KSCinemaDNGFileSequence - the buffer size is invalid");
        return nullptr;
    }
    if (!buffer) {
        logException(selector, "KSCinemaDNGFileSequence - the raw buffer may not be nil");
        return nullptr;
    }
    const size_t W = static_cast<size_t>(wd), H = static_cast<size_t>(hd);
    float* rgba = static_cast<float*>(std::malloc(W * H * 4 * sizeof(float)));
    if (!rgba) {
        logException(selector, "KSCinemaDNGFileSequence - the RGB buffer could not be allocated");
        return nullptr;
    }
    for (size_t y = 0; y < H; ++y) {
        const float* in = buffer + y * W;
        float* out = rgba + y * W * 4;
        // Pixels in pairs, without a branch per pixel. Even rows: green at even columns, red at odd
        // ones. Odd rows: blue at even columns, green at odd ones.
        const size_t pairs = W / 2;
        if ((y & 1) == 0) {
            for (size_t k = 0; k < pairs; ++k) {
                float* o = out + 8 * k;
                o[0] = 0.0f; o[1] = in[2 * k]; o[2] = 0.0f; o[3] = 1.0f;
                o[4] = in[2 * k + 1]; o[5] = 0.0f; o[6] = 0.0f; o[7] = 1.0f;
            }
            if (W & 1) {
                float* o = out + 8 * pairs;
                o[0] = 0.0f; o[1] = in[W - 1]; o[2] = 0.0f; o[3] = 1.0f;
            }
        } else {
            for (size_t k = 0; k < pairs; ++k) {
                float* o = out + 8 * k;
                o[0] = 0.0f; o[1] = 0.0f; o[2] = in[2 * k]; o[3] = 1.0f;
                o[4] = 0.0f; o[5] = in[2 * k + 1]; o[6] = 0.0f; o[7] = 1.0f;
            }
            if (W & 1) {
                float* o = out + 8 * pairs;
                o[0] = 0.0f; o[1] = 0.0f; o[2] = in[W - 1]; o[3] = 1.0f;
            }
        }
    }
    return rgba;
}

// One dictionary entry per tag field, keyed by the field's own name as it is written in the access
// text "dngTags->field".
#define KS_META(field, value) dict->setObject(KSDataTypeConverter::parameterNameFromCall("dngTags->" #field), value)

std::shared_ptr<KSDictionary> KSCinemaDNGFileSequence::metadata() {
    if (metaDataDict_ && !metaDataChanged_) return metaDataDict_;
    metaDataChanged_ = false;
    // The new dictionary replaces the cached one only once it is complete: a failure part-way
    // leaves no cached dictionary, so the next call tries again.
    metaDataDict_ = nullptr;
    auto dict = KSDictionary::dictionary();

    using C = KSDataTypeConverter;
    const cd_DNGTags& dngTags = *context_->dngTags();
    const cd_DNGTags* const t = &dngTags;

    if (t->asShotNeutral.size() == 3) {
        dict->setObject("asShotNeutral", C::floatArrayFromVector(t->asShotNeutral));
        if (t->CameraXYZWhitePoint.size() < 3)
            throw cd_exception("KSCinemaDNGFileSequence - the camera white point is not available");
        const std::valarray<float> xy = XYZToxy(t->CameraXYZWhitePoint);
        KRColorTemperature ct(KRXYCoordinateMake(xy[0], xy[1]));
        dict->setObject("asShotWhiteBalance", KSValue::numberWithDouble(std::round(ct.temperature() / 50.0) * 50.0));
        dict->setObject("asShotCCShift", KSValue::numberWithDouble(ct.tint()));
    }

    KS_META(imageDescription, stringValue(t->imageDescription));
    KS_META(make, stringValue(t->make));
    KS_META(model, stringValue(t->model));
    KS_META(orientation, KSValue::numberWithUnsignedLong(t->orientation));
    KS_META(software, stringValue(t->software));
    KS_META(dateTime, stringValue(t->dateTime));
    KS_META(artist, stringValue(t->artist));
    KS_META(copyright, stringValue(t->copyright));
    KS_META(exposureTime, C::rationalArrayFromVector(t->exposureTime));
    KS_META(FNumber, C::rationalArrayFromVector(t->FNumber));
    KS_META(timeZoneOffset, C::signedShortArrayFromVector(t->timeZoneOffset));
    KS_META(dateTimeOriginal, stringValue(t->dateTimeOriginal));
    KS_META(shutterSpeedValue, C::signedRationalArrayFromVector(t->shutterSpeedValue));
    KS_META(apertureValue, C::rationalArrayFromVector(t->apertureValue));
    KS_META(lightSource, KSValue::numberWithUnsignedShort(t->lightSource));
    KS_META(focalLength, C::rationalArrayFromVector(t->focalLength));
    KS_META(imageNumber, KSValue::numberWithUnsignedLong(t->imageNumber));
    KS_META(userComment, stringValue(t->userComment));
    KS_META(byteOrder, KSValue::numberWithUnsignedShort(t->byteOrder));
    KS_META(bitsPerSample, KSValue::numberWithUnsignedShort(t->bitsPerSample));
    KS_META(compression, KSValue::numberWithUnsignedShort(t->compression));
    KS_META(fillOrder, KSValue::numberWithUnsignedShort(t->fillOrder));
    KS_META(photometric, KSValue::numberWithUnsignedShort(t->photometric));
    KS_META(planarConfig, KSValue::numberWithUnsignedShort(t->planarConfig));
    KS_META(samplesPerPixel, KSValue::numberWithUnsignedShort(t->samplesPerPixel));
    KS_META(newSubFileType, KSValue::numberWithUnsignedLong(t->newSubFileType));
    KS_META(imageWidth, KSValue::numberWithUnsignedLong(t->imageWidth));
    KS_META(imageHeight, KSValue::numberWithUnsignedLong(t->imageHeight));
    KS_META(rowsPerStrip, KSValue::numberWithUnsignedLong(t->rowsPerStrip));
    KS_META(tileLength, KSValue::numberWithUnsignedLong(t->tileLength));
    KS_META(tileWidth, KSValue::numberWithUnsignedLong(t->tileWidth));
    KS_META(stripByteCounts, C::longArrayFromVector(t->stripByteCounts));
    KS_META(stripOffsets, C::longArrayFromVector(t->stripOffsets));
    KS_META(subIFDs, C::longArrayFromVector(t->subIFDs));
    KS_META(CFAPattern, C::byteArrayFromVector(t->CFAPattern));
    KS_META(CFARepeatPatternDim, C::shortArrayFromVector(t->CFARepeatPatternDim));
    KS_META(calibrationIlluminant1, KSValue::numberWithUnsignedShort(t->calibrationIlluminant1));
    KS_META(calibrationIlluminant2, KSValue::numberWithUnsignedShort(t->calibrationIlluminant2));
    KS_META(CFALayout, KSValue::numberWithUnsignedShort(t->CFALayout));
    KS_META(bayerGreenSplit, KSValue::numberWithUnsignedLong(t->bayerGreenSplit));
    KS_META(dngVersion, C::byteArrayFromVector(t->dngVersion));
    KS_META(dngBackVersion, C::byteArrayFromVector(t->dngBackVersion));
    KS_META(CFAPlaneColor, C::byteArrayFromVector(t->CFAPlaneColor));
    KS_META(blackLevelRepeatDim, C::shortArrayFromVector(t->blackLevelRepeatDim));
    KS_META(linearizationTable, C::shortArrayFromVector(t->linearizationTable));
    KS_META(activeArea, C::longArrayFromVector(t->activeArea));
    KS_META(whiteLevel, C::longArrayFromVector(t->whiteLevel));
    KS_META(defaultCropOrigin, C::pointFromVector(t->defaultCropOrigin));
    KS_META(defaultCropSize, C::sizeFromVector(t->defaultCropSize));
    KS_META(blackLevel, C::floatArrayFromVector(t->blackLevel));
    KS_META(blackLevelH, C::floatArrayFromVector(t->blackLevelH));
    KS_META(blackLevelV, C::floatArrayFromVector(t->blackLevelV));
    // Replaces the value of the derived entry of the same key (the key keeps its first position).
    KS_META(asShotNeutral, C::floatArrayFromVector(t->asShotNeutral));
    KS_META(cameraCalibration1, C::floatArrayFromVector(t->cameraCalibration1));
    KS_META(cameraCalibration2, C::floatArrayFromVector(t->cameraCalibration2));
    KS_META(xyz2rgbMatrix1, C::floatArrayFromVector(t->xyz2rgbMatrix1));
    KS_META(xyz2rgbMatrix2, C::floatArrayFromVector(t->xyz2rgbMatrix2));
    KS_META(baselineExposure, KSValue::stringWithString(C::stringFromSignedRational(t->baselineExposure)));
    KS_META(exposureIndexExif, KSValue::stringWithString(C::stringFromUnsignedRational(t->exposureIndexExif)));
    KS_META(privateData, KSValue::valueWithData(C::dataFromVector(t->privateData)));
    KS_META(lensInfo, C::rationalArrayFromVector(t->lensInfo));
    KS_META(cameraModel, stringValue(t->cameraModel));
    KS_META(cameraNumber, stringValue(t->cameraNumber));
    KS_META(localizedCameraModel, stringValue(t->localizedCameraModel));
    KS_META(timeCodes, C::byteArrayFromVector(t->timeCodes));
    KS_META(frameRate, KSValue::stringWithString(C::stringFromSignedRational(t->frameRate)));
    KS_META(tStop, C::floatArrayFromVector(t->tStop));
    metaDataDict_ = dict;
    return dict;
}

#undef KS_META

std::shared_ptr<KSImageProcessingInfo> KSCinemaDNGFileSequence::imageProcessingInfoWithCustomWhiteBalance(
    float temperature) {
    if (temperature < 0.0f) temperature = 5000.0f;
    cd_DNGTags& tags = *context_->dngTags();
    auto clip = std::make_unique<MetaWriteClip>();
    determineNetColorMatrixNonEXRWithCustomWB(tags, *clip, false, temperature);
    const std::valarray<float> net = clip->colorMatrixFromSourceRGBToOutputRGB;

    // The camera RGB that the net matrix sends to output white, scaled to a largest element of 1.
    std::valarray<float> maxRGB = multiplyMatrix(invertMatrix(net), unitTriple, 3);
    maxRGB /= largestElement(maxRGB);

    auto info = KSImageProcessingInfo::initWithCamToOutRGBMatrix(KSDataTypeConverter::floatArrayFromValarray(net),
                                                                 KSDataTypeConverter::floatArrayFromValarray(
                                                                     tags.CameraToXYZMtx),
                                                                 KSDataTypeConverter::floatArrayFromValarray(maxRGB));
    clip.reset();
    return info;
}

std::shared_ptr<KSImageProcessingInfo> KSCinemaDNGFileSequence::cameraToOutputRGBMatrixWithCustomWhiteBalance(
    float temperature, const float* xyzToCam) {
    if (!xyzToCam) throw cd_exception("KSCinemaDNGFileSequence - the XYZ to camera matrix may not be nil");
    const std::valarray<float> outToXYZ = matrixAppleGenericRGBToXYZ();
    const std::valarray<float> XYZtoOut = invertMatrix(outToXYZ);
    const std::valarray<float> outWhite = multiplyMatrix(outToXYZ, unitTriple, 3);

    const std::valarray<float> srcWhite = ColorTemperatureToXYZ(temperature);
    const std::valarray<float> adapt = matrixChromaticAdaptation(srcWhite, outWhite);

    const std::valarray<float> XYZtoCam(xyzToCam, 9);
    std::valarray<float> net = multiplyMatrix(multiplyMatrix(XYZtoOut, adapt, 3), invertMatrix(XYZtoCam), 3);
    net /= largestElement(multiplyMatrix(net, unitTriple, 3));

    // The camera's response to the chosen white, scaled to a largest element of 1.
    std::valarray<float> camWhite = multiplyMatrix(XYZtoCam, ColorTemperatureToXYZ(temperature), 3);
    camWhite /= largestElement(camWhite);

    return KSImageProcessingInfo::initWithCamToOutRGBMatrix(KSDataTypeConverter::floatArrayFromValarray(net),
                                                           KSDataTypeConverter::floatArrayFromValarray(
                                                               invertMatrix(XYZtoCam)),
                                                           KSDataTypeConverter::floatArrayFromValarray(camWhite));
}

}  // namespace cinedng
