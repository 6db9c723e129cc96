# The metadata that the clip carries: a plate and a face with pictures, in both forms, and heartbeats.

# Cut out of the clip by ffmpeg: two small pictures of different sizes and one of the whole scene.
make_metadata() {
  say "making a metadata script: plates, faces and heartbeats, with pictures cut from the clip"
  cut_picture plate.jpg "crop=320:96:160:480"
  cut_picture face.jpg "crop=352:416:1200:100"
  cut_picture scene.jpg "scale=640:360"
  cat >"$out/clip/metadata.json" <<'JSON'
{
  "messages": [
    {"time": 0.2, "repeat": 1, "kind": "heartbeat", "form": "ex"},
    {"time": 0.4, "kind": "plate", "form": "ex", "plate": "GVX 4711", "lane": 2, "speed": 57, "vehicle_type": 1,
     "vehicle_color": 3, "object_id": 4711, "plate_pos": [160, 480, 320, 96],
     "plate_picture": "plate.jpg", "panorama": "scene.jpg"},
    {"time": 0.8, "kind": "face", "form": "plain", "panorama": "scene.jpg",
     "faces": [{"id": 12, "pos": [1200, 100, 352, 416], "score": 93, "angle": -4, "picture": "face.jpg"}]},
    {"time": 1.2, "kind": "plate", "form": "plain", "plate": "GVX 4712", "lane": 1, "speed": 61,
     "plate_picture": "plate.jpg", "panorama": "scene.jpg"},
    {"time": 1.6, "kind": "face", "form": "ex", "panorama": "scene.jpg",
     "faces": [{"id": 13, "pos": [1200, 100, 352, 416], "score": 88, "picture": "face.jpg"}]}
  ]
}
JSON
}

# cut_picture FILE FILTER: from the clip's first second.
cut_picture() {
  ffmpeg -nostdin -y -v error -i "$out/clip/clip.h264" -vf "select=eq(n\,20),$2" -frames:v 1 -pix_fmt yuvj420p -q:v 3 \
    "$out/clip/$1" >"$out/ffmpeg_metadata.log" 2>&1 ||
    die "ffmpeg could not make $1: $(tail -n 5 "$out/ffmpeg_metadata.log")"
}

# The plate and the face that came first over UDP stay beside the picture of the video.
show_metadata() {
  local picture name
  say "pictures that came as metadata over UDP, and the originals"
  for name in plate face; do
    for picture in "$out"/metadata_udp/metadata_*_"$name"_pic.jpg; do
      [[ -s $picture ]] && cp "$picture" "$out/$name.jpg" && break
    done
  done
  (cd "$out" && sha256sum clip/plate.jpg plate.jpg clip/face.jpg face.jpg) || true
}
