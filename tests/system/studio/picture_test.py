"""The picture on the studio's page: which frame it shows, how close it is, and what of it."""

import base64
import unittest

import numpy
import support

# The compressed picture against the codes that it is made of, at the quality that the page begins with.
LEAST_PSNR = 44


class PictureTest(support.StudioTest):
    def setUp(self):
        self.page.click("#zoom-fit")
        self.page.studio("studio.setCompare({way: 'none', against: 'before'})")
        self.page.go_to(0)

    def test_opening_shows_the_clip_and_its_first_frame(self):
        self.assertEqual(self.page.text("#clip-name"), "clip.mp4")
        self.assertIn("640 × 360", self.page.text("#clip-facts"))
        self.assertEqual(self.page.text("#frame"), "frame 0 of 60")
        self.assertEqual(self.page.text(".link-name"), "cc3.fx")
        self.assertEqual(self.page.picture()["region"], [0, 0, support.WIDTH, support.HEIGHT])

    def test_the_page_asks_nobody_but_its_server(self):
        asked = self.page.run("return performance.getEntriesByType('resource').map(({name}) => name)")
        self.assertGreater(len(asked), 10)
        self.assertEqual([name for name in asked if not name.startswith((self.server.address, "data:", "blob:"))], [])

    def test_the_page_has_the_theme_of_the_system(self):
        self.addCleanup(self.browser.set_theme, "light")
        grounds = []
        for theme in ("light", "dark"):
            self.browser.set_theme(theme)
            self.page.wait(lambda: self.page.run("return matchMedia(`(prefers-color-scheme: ${arguments[0]})`).matches", theme),
                           "the theme was not set")
            grounds.append(self.page.run("return getComputedStyle(document.documentElement).backgroundColor.match(/\\d+/g).map(Number)"))
        self.assertGreater(min(grounds[0]), 128)
        self.assertLess(max(grounds[1]), 64)

    def test_the_compressed_picture_is_close_to_the_frame(self):
        self.page.go_to(7)
        shown = self.page.pixels()
        self.assertGreater(support.psnr(shown, support.convert(self.clip, 7)), LEAST_PSNR)

    def test_scrubbing_shows_the_frame_that_it_stops_at(self):
        # As fast as a hand moves: the server draws some of them, and the last one always.
        places = [*range(0, 60, 7), 3, 44, 12, 58, 31]
        self.page.run("""
            const scrub = document.getElementById('scrub');
            for (const frame of arguments[0]) {
                scrub.value = frame;
                scrub.dispatchEvent(new Event('input'));
            }
            scrub.dispatchEvent(new Event('change'));
            """, places)
        self.page.wait(lambda: self.page.picture()["frame"] == 31, "the last frame was not shown")
        self.assertEqual(self.page.text("#frame"), "frame 31 of 60")
        self.assertEqual(self.page.codes(20, 20)["before"][3], support.luma_of(31))

    def test_every_frame_that_is_gone_to_is_exact(self):
        for frame in (59, 1, 30, 29, 28, 2):
            self.page.go_to(frame)
            self.assertEqual(self.page.codes(20, 20)["before"][3], support.luma_of(frame))
            # What is seen tells it too: a patch of one colour loses nothing much in the compression.
            patch = self.page.pixels()[8:56, 8:56].mean()
            expected = support.convert(self.clip, frame)[8:56, 8:56].mean()
            self.assertAlmostEqual(patch, expected, delta=1)

    def test_the_keyboard_steps_by_frames(self):
        self.page.go_to(10)
        self.page.find("#stage").send_keys(support.Keys.ARROW_RIGHT, support.Keys.ARROW_RIGHT, support.Keys.ARROW_LEFT)
        self.page.wait(lambda: self.page.picture()["frame"] == 11, "frame 11 was not shown")
        self.assertEqual(self.page.find("#time").get_attribute("value"), "00:00:00:11")

    def test_a_time_code_goes_to_its_frame_and_nonsense_goes_nowhere(self):
        self.page.type_number("#time", "00:00:01:05")
        self.page.wait(lambda: self.page.picture()["frame"] == 30, "frame 30 was not shown")
        self.page.type_number("#time", "00:00:09:99")
        self.assertIn("Expected a frame from 0 to 59", self.page.find("#time").get_property("validationMessage"))
        self.assertEqual(self.page.studio("studio.state.frame"), 30)

    def test_playing_stays_between_the_in_and_the_out_point(self):
        self.page.go_to(20)
        self.page.find("#stage").send_keys("i")
        self.page.go_to(24)
        self.page.find("#stage").send_keys("o")
        self.page.wait(lambda: self.page.studio("[studio.state.in, studio.state.out]") == [20, 24], "the range was not set")
        self.page.run("""
            window.seen = [];
            new MutationObserver(() => window.seen.push(JSON.parse(document.getElementById('picture').dataset.after).frame))
                .observe(document.getElementById('picture'), {attributeFilter: ['data-after']});""")
        if not self.page.studio("studio.state.loop"):
            self.page.click("#loop")
        self.page.click("#play")
        self.page.wait(lambda: len(self.page.run("return window.seen")) > 8, "nothing was played")
        self.page.click("#play")
        self.page.wait(lambda: not self.page.studio("studio.state.playing"), "it plays on")
        seen = self.page.run("return window.seen")
        self.page.click("#clear-range")
        self.assertTrue(set(seen) <= set(range(20, 25)), seen)
        self.page.wait(lambda: self.page.studio("[studio.state.in, studio.state.out]") == [0, 59], "the range was not cleared")

    def test_zooming_shows_pixels_of_the_clip(self):
        self.page.click("#zoom-one")
        for _ in range(7):
            self.page.click("#zoom-in")
        header = self.page.wait(
            lambda: (h := self.page.picture())["region"][2] < 120 and h["width"] == h["region"][2] and h,
            "no part of the picture came, or not its pixels")
        x, y, width, height = header["region"]
        self.assertLessEqual(x + width, support.WIDTH)
        self.assertLessEqual(y + height, support.HEIGHT)
        self.assertEqual(header["height"], height)
        # Pixels are squares on the screen: the clip's pixel under the pointer is the one that is asked about.
        middle = (x + width // 2, y + height // 2)
        expected = support.convert(self.clip, 0)[middle[1], middle[0]]
        self.assertEqual(self.page.codes(*middle)["before"][:3], list(expected))

    def test_the_difference_of_an_unchanged_picture_is_grey(self):
        self.page.run("document.querySelector('#compare input[value=difference]').click()")
        self.page.wait(lambda: self.page.picture("difference"), "no difference came")
        self.page.wait(lambda: self.page.run("""
            const canvas = document.getElementById('picture');
            const data = canvas.getContext('2d').getImageData(canvas.width / 2 - 20, canvas.height / 2 - 20, 40, 40).data;
            return data.every((code, i) => i % 4 === 3 || Math.abs(code - 128) <= 1);"""), "the difference is not grey")

    def test_side_by_side_and_wipe_show_the_clip_and_the_result(self):
        for way in ("side", "wipe"):
            self.page.run("delete document.getElementById('picture').dataset.before")
            self.page.run("document.querySelector('#compare input[value=%s]').click()" % way)
            self.page.wait(lambda: self.page.picture("before"), "the clip was not shown")
        wipe = self.page.find("#wipe")
        self.assertTrue(wipe.is_displayed())
        wipe.send_keys(support.Keys.ARROW_LEFT, support.Keys.ARROW_LEFT)
        self.assertEqual(wipe.get_attribute("aria-valuenow"), "48")

    def test_a_still_is_compared_with(self):
        self.page.go_to(5)
        self.page.find("#stage").send_keys("s")
        self.page.wait(lambda: len(self.page.studio("studio.state.stills")) == 1, "no still was kept")
        self.page.go_to(40)
        self.page.click("#tab-stills")
        self.page.click(".still")
        self.page.wait(lambda: (self.page.picture("before") or {}).get("frame") is not None, "the still was not shown")
        # At the left of the wipe is the still's patch, whatever frame is shown at its right.
        self.page.click("#zoom-one")
        left = self.page.wait(lambda: abs((seen := self.patch()) - support.convert(self.clip, 5)[8:56, 8:56].mean()) < 2 and seen,
                              "the still is not at the left of the wipe")
        self.assertTrue(left)
        self.page.click(".stills .small")
        self.page.wait(lambda: not self.page.studio("studio.state.stills"), "the still was not removed")
        self.page.click("#tab-scopes")

    def patch(self):
        """The mean of the patch as it is seen at one to one."""
        self.page.wait_until_drawn()
        return self.page.run("""
            const canvas = document.getElementById('picture');
            const data = canvas.getContext('2d').getImageData(Math.round(canvas.width / 2 - arguments[0] / 2) + 8,
                Math.round(canvas.height / 2 - arguments[1] / 2) + 8, 48, 48).data;
            return data.reduce((sum, code, i) => i % 4 === 3 ? sum : sum + code, 0) / (data.length * 3 / 4);
            """, support.WIDTH, support.HEIGHT)

    def test_two_windows_share_the_chain_and_have_views_of_their_own(self):
        self.page.click("#zoom-fit")
        first = self.browser.current_window_handle
        self.browser.switch_to.new_window("window")
        self.browser.set_window_size(900, 700)
        second = support.Page(self.browser, self.server.address)
        try:
            second.click("#zoom-one")
            second.click("#zoom-in")
            second.set_slider("saturation", 0)
            shown_there = second.picture()
            self.browser.switch_to.window(first)
            self.page.wait(lambda: self.page.parameter("saturation")["values"] == [0], "the other window does not know")
            self.page.wait(lambda: self.page.find("[data-parameter=saturation] input.number").get_attribute("value") == "0.00",
                           "the other window's control does not show it")
            red, green, blue = self.page.codes(300, 200)["after"][:3]
            self.assertLessEqual(max(red, green, blue) - min(red, green, blue), 1)
            self.assertEqual(self.page.picture()["region"], [0, 0, support.WIDTH, support.HEIGHT])
            self.assertNotEqual(shown_there["width"], self.page.picture()["width"])
            self.page.click("#undo")
            self.browser.switch_to.window(second.window)
            second.wait(lambda: second.parameter("saturation")["values"] == [1], "undoing was not told")
        finally:
            self.browser.switch_to.window(second.window)
            self.browser.close()
            self.browser.switch_to.window(first)

    def test_the_picture_fills_the_screen(self):
        small = self.page.run("return document.getElementById('stage').getBoundingClientRect().width")
        self.page.find("#stage").send_keys("f")
        self.addCleanup(self.page.run, "if (document.fullscreenElement) return document.exitFullscreen()")
        self.page.wait(lambda: self.page.run("return document.fullscreenElement?.classList.contains('viewer') ?? false"),
                       "the picture does not fill the screen")
        self.page.wait(lambda: self.page.run("""
            const viewer = document.querySelector('.viewer').getBoundingClientRect();
            const canvas = document.getElementById('picture');
            const fits = Math.abs(canvas.width - document.getElementById('stage').clientWidth) <= 1;
            return fits && viewer.width === innerWidth && viewer.height === innerHeight;"""), "something is beside the picture")
        # Its controls are there too.
        self.assertTrue(self.page.find("#play").is_displayed())
        self.page.find("#stage").send_keys(support.Keys.ARROW_RIGHT)
        self.page.wait(lambda: self.page.picture()["frame"] == 1, "the keyboard does nothing")
        self.page.find("#full-screen").click()
        self.page.wait(lambda: self.page.run("return document.fullscreenElement === null"), "the picture stays")
        self.page.wait(lambda: self.page.run("return document.getElementById('stage').getBoundingClientRect().width") == small,
                       "the picture has not its old size")

    def touch(self, *fingers):
        """Each finger is put down at the first of its places in the window, goes to the others, and is lifted."""
        def moves(places):
            return [{"type": "pointerMove", "duration": 0, "x": round(x), "y": round(y)} for x, y in places]

        self.browser.execute(support.Command.W3C_ACTIONS, {"actions": [
            {"type": "pointer", "id": "finger %d" % number, "parameters": {"pointerType": "touch"},
             "actions": [*moves(places[:1]), {"type": "pointerDown", "button": 0}, *moves(places[1:]),
                         {"type": "pointerUp", "button": 0}]} for number, places in enumerate(fingers)]})

    def clip_place(self, x, y):
        """The clip's place that is seen at a place of the window."""
        return self.browser.execute_async_script("""
            const [x, y, done] = arguments;
            import(new URL('picture/picture.js', location.href)).then(({clipPlace}) => done(clipPlace(x, y)));""", x, y)

    def test_two_fingers_zoom_and_one_moves_the_picture(self):
        box = self.page.run("return document.getElementById('stage').getBoundingClientRect().toJSON()")
        x, y = box["left"] + box["width"] * 0.6, box["top"] + box["height"] * 0.45
        fitting = self.page.picture()["region"]
        self.assertEqual(fitting, [0, 0, support.WIDTH, support.HEIGHT])
        before = self.clip_place(x, y)
        scale = support.WIDTH / box["width"]  # of the clip's pixels in one of the window, at most
        spreads = range(30, 130, 10)
        self.touch([(x - spread, y) for spread in spreads], [(x + spread, y) for spread in spreads])
        zoomed = self.page.wait(lambda: (place := self.clip_place(x, y)) and self.page.text("#zoom") != "fit" and place,
                                "the picture was not zoomed")
        # What lay between the fingers lies there still, four times as large, up to half a pixel of the window by rounding.
        self.assertAlmostEqual(zoomed["x"], before["x"], delta=scale)
        self.assertAlmostEqual(zoomed["y"], before["y"], delta=scale)
        beside = self.clip_place(x + 100, y)
        self.assertLess(beside["x"] - zoomed["x"], 100 * scale / 3)
        self.touch([(x - way, y - way / 2) for way in range(0, 60, 10)])
        moved = self.clip_place(x - 50, y - 25)
        self.assertAlmostEqual(moved["x"], zoomed["x"], delta=1)
        self.assertAlmostEqual(moved["y"], zoomed["y"], delta=1)
        self.page.wait(lambda: self.page.picture()["region"] != fitting, "the part that is seen did not come")

    def test_time_codes_that_drop_numbers_count_as_the_clips(self):
        clip = self.folder / "dropping.mp4"
        support.make_clip(clip, "30000/1001", "1", "-timecode", "00:00:59;20")
        with self.another(clip) as page:
            value = lambda: page.find("#time").get_attribute("value")
            self.assertEqual(value(), "00:00:59;20")
            page.go_to(9)
            self.assertEqual(value(), "00:00:59;29")
            page.click("#on")
            page.wait(lambda: page.picture()["frame"] == 10, "frame 10 was not shown")
            # SMPTE ST 12-1: the numbers 0 and 1 are left out in the first second of a minute.
            self.assertEqual(value(), "00:01:00;02")
            page.type_number("#time", "00:01:01;05")
            page.wait(lambda: page.picture()["frame"] == 43, "frame 43 was not shown")
            self.assertEqual(page.codes(20, 20)["before"][3], support.luma_of(43))
            page.type_number("#time", "00:01:00;01")
            self.assertIn("Expected a frame", page.find("#time").get_property("validationMessage"))
            self.assertEqual(page.studio("studio.state.frame"), 43)

    def test_a_clip_without_a_time_code_counts_as_text_in_conversions_does(self):
        clip = self.folder / "uncounted.mp4"
        support.make_clip(clip, "30000/1001")
        with self.another(clip) as page:
            self.assertEqual(page.find("#time").get_attribute("value"), "00:00:00;00")

    def test_pixels_that_are_no_squares_are_shown_as_wide_as_they_are(self):
        clip = self.folder / "wide.mp4"
        support.make_clip(clip, "25", "3/2")
        with self.another(clip, "cc3.fx") as page:
            places = self.browser.execute_async_script("""
                const [width, height, done] = arguments;
                import(new URL('picture/picture.js', location.href))
                    .then(({stagePlace}) => done([stagePlace(0, 0), stagePlace(width, height)]));""", support.WIDTH, support.HEIGHT)
            width, height = (places[1][axis] - places[0][axis] for axis in "xy")
            self.assertAlmostEqual(width / height, support.WIDTH / support.HEIGHT * 3 / 2, places=3)
            # The picture lies there, and nowhere else.
            page.wait_until_drawn()
            seen = page.run("""
                const canvas = document.getElementById('picture');
                const data = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
                const opaque = (x, y) => data[4 * (y * canvas.width + x) + 3] === 255;
                const across = [...Array(canvas.width).keys()].filter((x) => opaque(x, canvas.height >> 1));
                const down = [...Array(canvas.height).keys()].filter((y) => opaque(canvas.width >> 1, y));
                return [across[0], across.at(-1) + 1, down[0], down.at(-1) + 1];""")
            for edge, place in zip(seen, (places[0]["x"], places[1]["x"], places[0]["y"], places[1]["y"])):
                self.assertAlmostEqual(edge, place, delta=1)
            # Codes are those of the clip's own pixels.
            for x, y in ((support.PATCH - 1, 9), (support.PATCH, 9), (500, 300)):
                self.assertEqual(page.codes(x, y)["before"][:3], list(support.convert(clip, 0)[y, x]))

    def counts(self, text):
        """Counts as a scope's message has them."""
        return numpy.frombuffer(base64.b64decode(text), "<u2").astype(int)

    def assert_chromaticity_is_counted(self, scope, picture):
        """Light by BT.1886, in units of 2^-26, and X, Y and Z of BT.709-6's primaries and white, in units of 2^-20."""
        places = numpy.array([[0.64, 0.33], [0.30, 0.60], [0.15, 0.06]])
        white = numpy.array([0.3127 / 0.3290, 1, (1 - 0.3127 - 0.3290) / 0.3290])
        primaries = numpy.array([places[:, 0], places[:, 1], 1 - places.sum(axis=1)]) / places[:, 1]
        matrix = primaries * numpy.linalg.solve(primaries, white)
        units = numpy.floor(matrix * 2 ** 20 + 0.5).astype("int64")
        light = numpy.floor((numpy.arange(256) / 255) ** 2.4 * 2 ** 26 + 0.5).astype("int64")
        xyz = light[picture] @ units.T
        size = scope["size"]
        self.assertEqual(scope["end"], 0.9)
        bright = xyz[xyz[..., 1] >= 2 ** 36]
        cells = bright[:, :2] * (10 * size) // (9 * bright.sum(axis=1, keepdims=True))
        direct = numpy.bincount(cells[:, 1] * size + cells[:, 0], minlength=size * size)
        numpy.testing.assert_array_equal(self.counts(scope["counts"]), numpy.minimum(direct, 65535))

    def test_scopes_are_a_direct_count_of_the_frame(self):
        self.page.click("#tab-scopes")
        for kind in self.browser.find_elements(support.By.CSS_SELECTOR, "#scope-kinds input:not(:checked)"):
            self.page.run("arguments[0].click()", kind)
        self.page.go_to(11)
        self.page.set_slider("saturation", 0.6)
        picture = support.convert(self.clip, 11, "--effect", "cc3.fx", "--set", "saturation=0.6").astype(int)
        expected = [numpy.bincount(picture[..., channel].ravel(), minlength=256).tolist() for channel in range(3)]

        def counted():
            scopes = self.page.studio("studio.scopes ?? null")
            return scopes if scopes and scopes["frame"] == 11 and scopes["histogram"]["r"] == expected[0] else None

        scopes = self.page.wait(counted, "the histogram of red is not that of the frame")
        self.assertEqual([scopes["histogram"][channel] for channel in "rgb"], expected)
        # Luma of the signal: BT.709-6, 3.2 and 3.4, in codes of 8 bits.
        luma = numpy.floor(16 + 219 / 255 * (picture @ numpy.array([0.2126, 0.7152, 0.0722])) + 0.5).astype(int)
        self.assertEqual(scopes["histogram"]["luma"], numpy.bincount(luma.ravel(), minlength=256).tolist())
        self.assertEqual((scopes["black"], scopes["white"]), (16, 235))
        # A waveform's columns share those of the picture evenly.
        columns = scopes["waveform"]["columns"]
        place = numpy.arange(support.WIDTH) * columns // support.WIDTH
        for name, codes in (("luma", luma), ("r", picture[..., 0]), ("g", picture[..., 1]), ("b", picture[..., 2])):
            scope = scopes["waveform"] if name == "luma" else scopes["parade"]
            direct = numpy.bincount((codes * columns + place).ravel(), minlength=256 * columns)
            numpy.testing.assert_array_equal(self.counts(scope[name]), direct, name)
        # Each pixel is a point of the vectorscope: 65535 stands for more, which no cell of this frame has.
        self.assertEqual(self.counts(scopes["vectorscope"]["counts"]).sum(), support.WIDTH * support.HEIGHT)
        self.assert_chromaticity_is_counted(scopes["chromaticity"], picture)
        self.page.wait(lambda: self.page.find("#scopes").get_attribute("data-frame") == "11", "the scopes were not drawn")
        self.page.click("#undo")


if __name__ == "__main__":
    unittest.main()
