# The clip: made by a real encoder, and what its own decoder sees in it.

# 1080p25 with B-frames and four slices a frame, which leaves three-byte start codes between the slices.
make_clip() {
  say "making a clip of $clip_seconds s: 1080p25 H.264 with B-frames and 4 slices, G.711A"
  mkdir -p "$out/clip"
  ffmpeg -nostdin -y -v error \
    -f lavfi -i "testsrc2=size=1920x1080:rate=25:duration=$clip_seconds" \
    -f lavfi -i "sine=frequency=440:sample_rate=8000:duration=$clip_seconds" \
    -map 0:v -c:v libx264 -preset veryfast -pix_fmt yuv420p \
    -x264-params "slices=4:bframes=2:b-adapt=0:keyint=25:scenecut=0" -f h264 "$out/clip/clip.h264" \
    -map 1:a -c:a pcm_alaw -ac 1 -f alaw "$out/clip/clip.alaw" >"$out/ffmpeg_clip.log" 2>&1 ||
    die "ffmpeg could not make the clip: $(tail -n 5 "$out/ffmpeg_clip.log")"
  decode_pictures "$out/clip/clip.h264" "$out/clip.md5" "$out/ffmpeg_clip.log"
  clip_frames=$(count_pictures "$out/clip.md5")
  note clip_frames "$clip_frames"
  note clip_video_bytes "$(stat -c %s "$out/clip/clip.h264")"
  ((clip_frames == clip_seconds * 25)) || die "the clip has $clip_frames frames, not $((clip_seconds * 25))"
}

# decode_pictures STREAM MD5 LOG: one line with a checksum for each decoded picture; ffmpeg's complaints into LOG.
decode_pictures() {
  : >"$2"
  run_bounded 600 ffmpeg -nostdin -y -v error -i "$1" -map 0:v -fps_mode passthrough -f framemd5 "$2" >"$3" 2>&1 ||
    echo "ffmpeg ended with $?" >>"$3"
}

count_pictures() { grep -vc '^#' "$1" || true; }

checksums() { awk '!/^#/ { print $NF }' "$1"; }

# same_pictures A B: the decoded pictures are the same, one by one.
same_pictures() {
  cmp -s <(checksums "$1") <(checksums "$2")
}

# judge_recording NAME STREAM: decodes it and notes pictures, complaints and whether the pictures are the clip's.
judge_recording() {
  local md5=$out/$1.md5 log=$out/decode_$1.log same=0
  if [[ -s $2 ]]; then
    decode_pictures "$2" "$md5" "$log"
  else
    : >"$md5"
    echo "nothing was received" >"$log"
  fi
  same_pictures "$out/clip.md5" "$md5" && same=1
  note "$1_decoded" "$(count_pictures "$md5")"
  note "$1_decode_errors" "$(wc -l <"$log")"
  note "$1_same_pictures" "$same"
}

decode_recording() {
  say "decoding what arrived over ${1^^}"
  judge_recording "$1" "$out/$2"
}

take_picture() {
  [[ -s $out/stream.h264 ]] || return 0
  ffmpeg -nostdin -y -v error -i "$out/stream.h264" -vf "select=eq(n\,$((clip_frames / 2)))" -frames:v 1 \
    "$out/frame.png" >"$out/ffmpeg_picture.log" 2>&1 || true
}
