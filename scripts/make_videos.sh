#!/usr/bin/env bash
# Makes the sandbox's video creatives with GStreamer's own tools (Debian's gstreamer1.0-tools
# and plugin packages, installed by scripts/install-deps.sh). The files are committed; run
# this again only to change them.
#   scripts/make_videos.sh [OUT_DIR]      (default: tools/sandbox/creatives)
#
#   reward-3s.mp4      H.264 + AAC in MP4, 3.0 s, 360x640 portrait
#   reward-10s.mp4     H.264 + AAC in MP4, 10.4 s, 360x640 portrait
#   reward-3s.webm     VP8 + Vorbis in WebM, 3.0 s, 360x640 portrait
#   reward-corrupt.mp4 an MP4 file type header followed by bytes that are no MP4 at all
set -euo pipefail
cd "$(dirname "$0")/.."
OUT=${1:-tools/sandbox/creatives}
mkdir -p "$OUT"

# A moving ball on a dark blue ground, and a quiet tone: something visibly plays.
video() {  # tenths of a second → the video source branch
  local frames=$(( $1 * 30 / 10 ))
  echo "videotestsrc num-buffers=$frames pattern=ball motion=sweep background-color=0xff203040 \
    ! video/x-raw,width=360,height=640,framerate=30/1"
}
audio() {  # tenths of a second → the audio source branch (44.1 kHz, 10240 samples a buffer)
  local buffers=$(( $1 * 4410 / 10240 + 1 ))
  echo "audiotestsrc num-buffers=$buffers samplesperbuffer=10240 volume=0.1 freq=440 \
    ! audio/x-raw,rate=44100,channels=2"
}

mp4() {  # tenths of a second, file
  eval gst-launch-1.0 -q "$(video "$1")" \
    ! x264enc speed-preset=slow bitrate=250 key-int-max=30 ! video/x-h264,profile=main \
    ! h264parse ! mp4mux faststart=true name=mux ! filesink location="$2" \
    "$(audio "$1")" ! avenc_aac bitrate=64000 ! aacparse ! mux.
}

mp4 30 "$OUT/reward-3s.mp4"
mp4 104 "$OUT/reward-10s.mp4"
eval gst-launch-1.0 -q "$(video 30)" ! vp8enc target-bitrate=300000 deadline=1 \
  ! webmmux name=mux ! filesink location="$OUT/reward-3s.webm" \
  "$(audio 30)" ! audioconvert ! vorbisenc ! mux.

# The first box of a real file, so it is recognised as MP4, then 16 KiB of noise that no
# demuxer can read: the player's error path.
python3 - "$OUT/reward-3s.mp4" "$OUT/reward-corrupt.mp4" <<'PY'
import random, struct, sys
data = open(sys.argv[1], "rb").read()
size = struct.unpack(">I", data[:4])[0]
rng = random.Random(20261123)
open(sys.argv[2], "wb").write(data[:size] + bytes(rng.randrange(256) for _ in range(16384)))
PY
ls -l "$OUT"/reward-*
