// KpzInfo.java - what a gallery needs to know of one KPZ raw file before it
// shows it: which way up it is, how large its preview and thumbnail are, the
// camera model and when the picture was taken. Made by
// KaviKPZInterface.getInfo from one read of the file's first 64 KiB.
//
//   KpzInfo info = kpz.getInfo(pfd.getFd());
//   Matrix m = new Matrix();
//   m.postRotate(info.getRotationDegrees());
//   if (info.isFlipped()) { m.postScale(-1, 1); }
//
// Immutable; safe to share between threads.
package com.kavi.dtv.kpzinterface;

import java.nio.charset.StandardCharsets;
import java.util.Locale;

public final class KpzInfo {
    private final int orientation;
    private final boolean orientationRecorded;
    private final int previewWidth;
    private final int previewHeight;
    private final long previewLength;
    private final long thumbnailLength;
    private final String model;
    private final String dateTimeOriginal;

    // From the native library. `model` is null when the file records none;
    // the date-time fields count only when `hasDateTime`.
    KpzInfo(int orientation, boolean orientationRecorded, int previewWidth, int previewHeight,
            long previewLength, long thumbnailLength, byte[] model, boolean hasDateTime,
            int year, int month, int day, int hour, int minute, int second) {
        this.orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;
        this.orientationRecorded = orientationRecorded;
        this.previewWidth = previewWidth;
        this.previewHeight = previewHeight;
        this.previewLength = previewLength;
        this.thumbnailLength = thumbnailLength;
        this.model = model == null ? null : new String(model, StandardCharsets.UTF_8);
        this.dateTimeOriginal = hasDateTime
                ? String.format(Locale.ROOT, "%04d:%02d:%02d %02d:%02d:%02d",
                        year, month, day, hour, minute, second)
                : null;
    }

    /**
     * The orientation as the file records it, the Exif value 1 to 8 (1:
     * upright, 6: to be turned 90 degrees clockwise, ...); 1 when the file
     * records none.
     */
    public int getOrientation() {
        return orientation;
    }

    /** True when the file records an orientation, false when 1 is assumed. */
    public boolean isOrientationRecorded() {
        return orientationRecorded;
    }

    /**
     * How far to turn the stored picture clockwise to show it upright: 0, 90,
     * 180 or 270. Apply it first, then the mirroring of {@link #isFlipped()}
     * ({@code matrix.postRotate(degrees); if (flipped) matrix.postScale(-1, 1);}),
     * as with AndroidX ExifInterface's {@code getRotationDegrees()} and
     * {@code isFlipped()}.
     */
    public int getRotationDegrees() {
        switch (orientation) {
            case 3:
            case 4:
                return 180;
            case 5:
            case 6:
                return 90;
            case 7:
            case 8:
                return 270;
            default:
                return 0;
        }
    }

    /**
     * True when the picture, after the turn of {@link #getRotationDegrees()},
     * must also be mirrored left to right (orientations 2, 4, 5 and 7).
     */
    public boolean isFlipped() {
        return orientation == 2 || orientation == 4 || orientation == 5 || orientation == 7;
    }

    /** True when the file holds a preview that can be read. */
    public boolean hasPreview() {
        return previewLength > 0;
    }

    /**
     * The preview's width in pixels as the file records it (as stored, before
     * any turn); 0 when it records none or there is no preview to read.
     */
    public int getPreviewWidth() {
        return previewWidth;
    }

    /** The preview's height in pixels; 0 as for {@link #getPreviewWidth()}. */
    public int getPreviewHeight() {
        return previewHeight;
    }

    /**
     * The preview's length in bytes: the capacity a direct buffer needs for
     * {@link KaviKPZInterface#readPreview(int, java.nio.ByteBuffer)}; 0 when
     * there is no preview to read.
     */
    public long getPreviewLength() {
        return previewLength;
    }

    /** True when the file holds a thumbnail that can be read. */
    public boolean hasThumbnail() {
        return thumbnailLength > 0;
    }

    /** The thumbnail's length in bytes; 0 when there is no thumbnail to read. */
    public long getThumbnailLength() {
        return thumbnailLength;
    }

    /** The camera model ("DSLR-M100"), or null when the file records none. */
    public String getModel() {
        return model;
    }

    /**
     * When the picture was taken, as the file records it:
     * "yyyy:MM:dd HH:mm:ss" (the Exif form, local time of the camera, not
     * range-checked); null when the file records none or not in that form.
     */
    public String getDateTimeOriginal() {
        return dateTimeOriginal;
    }

    @Override
    public String toString() {
        return "KpzInfo{orientation=" + orientation + (orientationRecorded ? "" : " (assumed)")
                + ", preview=" + previewWidth + "x" + previewHeight + " " + previewLength + " bytes"
                + ", thumbnail=" + thumbnailLength + " bytes"
                + ", model=" + model + ", dateTimeOriginal=" + dateTimeOriginal + "}";
    }
}
