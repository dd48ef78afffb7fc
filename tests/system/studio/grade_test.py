"""The controls of the studio's page: what they set is what `qxhost convert` writes with the same values."""

import subprocess
import unittest

import numpy
import support
from selenium.webdriver import ActionChains

# Pixels in different parts of the picture, beside the edges of its pattern.
PLACES = [(100, 100), (321, 77), (402, 301), (600, 200), (30, 30)]

# A control of each kind.
KINDS = """texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; };
bool invert < string Label = "Invert"; > = false;
int mode < string Label = "Mode"; string Choices = "Off;Soft;Hard=5"; > = 0;
float3 tint < string Label = "Tint"; string Widget = "colour"; float Min = 0; float Max = 1; > = float3(1, 1, 1);
float angle < string Label = "Angle"; string Widget = "angle"; float Min = -180; float Max = 180; > = 0;
float master[5] < string Label = "Master curve"; float Min = 0; float Max = 1; float Step = 0.01; > = { 0, 0.25, 0.5, 0.75, 1 };
float4 kinds(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    float sum = angle / 1000 + mode / 100.0 + master[0] + master[2] / 100;
    return float4((invert ? 1 - picture.rgb : picture.rgb) * tint + sum, picture.a);
}
technique Kinds { pass P0 { PixelShader = compile ps_3_0 kinds(); } }
"""


class GradeTest(support.StudioTest):
    @classmethod
    def effects(cls):
        return ["cc3.fx", "qx-vignette.fx"]

    def setUp(self):
        page = self.page
        for link in page.studio("studio.state.chain.map(({id}) => id)"):
            page.studio("studio.request('reset', {link: %d})" % link)
            page.studio("studio.request('switch', {link: %d, on: true})" % link)
        page.wait(lambda: all(page.studio("studio.state.chain.map(({on}) => on)")), "an effect is off still")
        page.studio("studio.select(studio.state.chain.find(({name}) => name === 'cc3.fx').id)")
        page.go_to(4)

    def switch_off_vignette(self):
        self.page.find(".link:not(.open) input[type=checkbox]").click()
        self.page.change_is_shown()

    def assert_result_is(self, picture):
        for x, y in PLACES:
            self.assertEqual(self.page.codes(x, y)["after"][:3], list(picture[y, x]), (x, y))

    def test_a_slider_changes_the_codes_to_those_that_convert_writes(self):
        self.switch_off_vignette()
        self.page.set_slider("saturation", 1.7)
        self.assert_result_is(support.convert(self.clip, 4, "--effect", "cc3.fx", "--set", "saturation=1.7"))

    def test_effects_after_each_other_give_the_codes_of_convert(self):
        self.page.set_slider("saturation", 0.4)
        self.assert_result_is(support.convert(
            self.clip, 4, "--effect", "cc3.fx", "--set", "saturation=0.4", "--effect", "qx-vignette.fx"))

    def test_a_typed_number_is_taken_and_nonsense_is_marked(self):
        self.switch_off_vignette()
        field = "[data-parameter=saturation] input.number"
        self.page.type_number(field, "0.25")
        self.page.wait(lambda: self.page.parameter("saturation")["values"] == [0.25], "the number was not taken")
        self.page.change_is_shown()
        self.assert_result_is(support.convert(self.clip, 4, "--effect", "cc3.fx", "--set", "saturation=0.25"))
        self.page.type_number(field, "much")
        self.assertEqual(self.page.find(field).get_attribute("aria-invalid"), "true")
        self.page.type_number(field, "17")
        self.assertIn("from 0 to 4", self.page.find(field).get_attribute("title"))
        self.assertEqual(self.page.parameter("saturation")["values"], [0.25])

    def test_a_wheel_moves_its_three_colours_in_one_step_of_undo(self):
        self.switch_off_vignette()
        disc = self.page.find("[data-parameter=gain] .disc")
        ActionChains(self.browser).click_and_hold(disc).move_by_offset(9, -4).move_by_offset(3, -6).release().perform()
        names = ["gainRed", "gainGreen", "gainBlue"]
        self.page.wait(lambda: all(self.page.parameter(name)["values"] != [1] for name in names), "the wheel set nothing")
        self.page.change_is_shown()
        values = [self.page.parameter(name)["values"][0] for name in names]
        # The wheel moves the colours apart and keeps luma.
        luma = sum(share * value for share, value in zip((0.2126, 0.7152, 0.0722), values))
        self.assertAlmostEqual(luma, 1, places=4)
        settings = [argument for name, value in zip(names, values) for argument in ("--set", "%s=%.9g" % (name, value))]
        self.assert_result_is(support.convert(self.clip, 4, "--effect", "cc3.fx", *settings))
        self.page.click("#undo")
        self.page.wait(lambda: all(self.page.parameter(name)["values"] == [1] for name in names), "undoing took several steps")
        self.page.click("#redo")
        self.page.wait(lambda: self.page.parameter("gainRed")["values"] == [values[0]], "it was not done again")

    def test_a_double_click_resets(self):
        self.page.set_slider("saturation", 2)
        ActionChains(self.browser).double_click(self.page.find("[data-parameter=saturation] .label")).perform()
        self.page.wait(lambda: self.page.parameter("saturation")["values"] == [1], "it was not reset")

    def test_the_keyboard_moves_a_slider_and_each_press_is_one_step_of_undo(self):
        slider = self.page.find("[data-parameter=saturation] input[type=range]")
        slider.send_keys(support.Keys.ARROW_RIGHT)
        self.page.wait(lambda: abs(self.page.parameter("saturation")["values"][0] - 1.01) < 1e-6, "no step was made")
        ActionChains(self.browser).key_down(support.Keys.SHIFT).send_keys(support.Keys.ARROW_RIGHT).key_up(support.Keys.SHIFT).perform()
        self.page.wait(lambda: abs(self.page.parameter("saturation")["values"][0] - 1.11) < 1e-6, "no large step was made")
        slider.send_keys(support.Keys.CONTROL, "z")
        self.page.wait(lambda: abs(self.page.parameter("saturation")["values"][0] - 1.01) < 1e-6, "it was not undone")

    def test_links_are_moved_switched_off_added_and_removed(self):
        page = self.page
        names = lambda: page.run("return [...document.querySelectorAll('.link-name')].map((name) => name.textContent)")
        page.find(".link:first-child .grip").send_keys(support.Keys.ARROW_DOWN)
        page.wait(lambda: names() == ["qx-vignette.fx", "cc3.fx"], "the link was not moved")
        page.set_slider("saturation", 0.4)
        self.assert_result_is(support.convert(
            self.clip, 4, "--effect", "qx-vignette.fx", "--effect", "cc3.fx", "--set", "saturation=0.4"))
        self.assertEqual(page.run("return document.activeElement.closest('li')?.querySelector('.link-name').textContent"), "cc3.fx")
        # With the pointer back again.
        grip = page.find(".link:last-child .grip")
        ActionChains(self.browser).click_and_hold(grip).move_to_element(page.find(".link:first-child .link-head")) \
            .move_by_offset(0, -14).release().perform()
        page.wait(lambda: names() == ["cc3.fx", "qx-vignette.fx"], "the link was not dragged")
        page.click("#chain-add")
        page.find("dialog input[type=search]").send_keys("curves")
        page.wait(lambda: page.run("return document.querySelectorAll('.catalogue button').length") == 1, "the search found nothing")
        page.wait(lambda: (page.run("return document.querySelector('.catalogue img')?.naturalWidth") or 0) > 0, "there is no thumbnail")
        page.click(".catalogue button")
        page.wait(lambda: names() == ["cc3.fx", "qx-curves.fx", "qx-vignette.fx"], "nothing was added")
        page.click(".link.open .link-head .small")
        page.wait(lambda: names() == ["cc3.fx", "qx-vignette.fx"], "nothing was removed")
        self.switch_off_vignette()
        page.wait(lambda: page.studio("studio.state.chain[1].on") is False, "the link is still on")

    def test_key_frames_lead_from_value_to_value(self):
        page = self.page
        self.switch_off_vignette()
        key = "[data-parameter=saturation] .key"
        page.go_to(0)
        page.set_slider("saturation", 0)
        page.click(key)
        page.wait(lambda: len(page.parameter("saturation")["keys"]) == 1, "no key was set")
        page.go_to(20)
        page.set_slider("saturation", 2)
        page.wait(lambda: len(page.parameter("saturation")["keys"]) == 2, "the change set no key")
        page.go_to(5)
        page.wait(lambda: page.find("[data-parameter=saturation] input.number").get_attribute("value") == "0.50",
                  "the value between two keys is not shown")
        self.assert_result_is(support.convert(self.clip, 5, "--effect", "cc3.fx", "--set", "saturation=0.5"))
        page.click("[data-parameter=saturation] .keys button:nth-of-type(2)")
        page.wait(lambda: page.picture()["frame"] == 20, "the next key was not gone to")
        page.click(key)
        page.wait(lambda: len(page.parameter("saturation")["keys"]) == 1, "the key was not removed")

    def test_the_keys_of_a_wheel_are_one_step_of_undo(self):
        page = self.page
        names = ["gain", "gainRed", "gainGreen", "gainBlue"]
        keyed = lambda: [len(page.parameter(name)["keys"]) for name in names]
        page.click("[data-parameter=gain] .key")
        page.wait(lambda: keyed() == [1] * 4, "no keys were set")
        page.click("[data-parameter=gain] .key")
        page.wait(lambda: keyed() == [0] * 4, "the keys were not removed")
        page.click("#undo")
        page.wait(lambda: keyed() == [1] * 4, "removing took several steps")
        page.click("#undo")
        page.wait(lambda: keyed() == [0] * 4, "setting took several steps")

    def test_a_saved_look_gives_the_same_bytes_in_convert(self):
        page = self.page
        page.set_slider("saturation", 1.3)
        page.click("#look-save")
        page.type_number("#look-file", "evening.look.toml")
        page.wait(lambda: page.text("#look-name") == "evening.look.toml", "the look was not saved")
        look = self.folder / "evening.look.toml"
        self.assertTrue(look.exists())
        chain = ["--effect", "cc3.fx", "--set", "saturation=1.3", "--effect", "qx-vignette.fx"]
        by_look = self.converted("look.mkv", "--look", str(look))
        self.assertEqual(by_look, self.converted("chain.mkv", *chain))
        self.assertNotEqual(by_look, self.converted("plain.mkv"))
        self.assert_result_is(support.convert(self.clip, 4, "--look", str(look)))
        # Another look, and this one again.
        page.set_slider("saturation", 0)
        self.assertEqual(page.text("#look-name"), "evening.look.toml *")
        page.click("#look-open")
        page.wait(lambda: page.run("return document.querySelectorAll('.files button').length") == 1, "no look is listed")
        page.click(".files button")
        page.wait(lambda: abs(page.parameter("saturation")["values"][0] - 1.3) < 1e-6, "the look was not opened")

    def converted(self, name, *options):
        """The bytes of the first frames after a conversion, unpacked by FFmpeg."""
        target = self.folder / name
        subprocess.run([support.PROGRAM, "convert", str(self.clip), str(target), "--frames", "3", *options],
                       check=True, capture_output=True)
        return subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(target), "-f", "rawvideo", "-"],
                              check=True, capture_output=True).stdout

    def test_a_look_is_not_saved_over_a_file_without_being_asked(self):
        (self.folder / "kept.look.toml").write_text("mine")
        self.page.click("#look-save")
        self.page.type_number("#look-file", "kept")
        self.page.wait(lambda: "exists" in self.page.text(".dialog-status"), "nothing was said")
        self.assertEqual((self.folder / "kept.look.toml").read_text(), "mine")
        self.page.find("dialog").send_keys(support.Keys.ESCAPE)
        (self.folder / "kept.look.toml").unlink()

    def test_a_mapping_of_colours_is_exported_as_a_cube_and_nothing_else_is(self):
        page = self.page
        page.set_slider("saturation", 0.7)
        page.click("#look-export")
        page.type_number("#export-file", "out.cube")
        page.wait(lambda: "no mapping of colours" in page.text(".dialog-status"), "a vignette was exported")
        self.assertFalse((self.folder / "out.cube").exists())
        page.find("dialog").send_keys(support.Keys.ESCAPE)
        self.switch_off_vignette()
        page.click("#look-export")
        page.type_number("#export-file", "out.cube")
        page.wait(lambda: "Written: out.cube" in page.text(".dialog-status"), "it was not exported")
        page.find("dialog").send_keys(support.Keys.ESCAPE)
        by_table = support.convert(self.clip, 4, "--lut", str(self.folder / "out.cube")).astype(int)
        by_effect = support.convert(self.clip, 4, "--effect", "cc3.fx", "--set", "saturation=0.7")
        self.assertLessEqual(abs(by_table - by_effect).max(), 1)

    def test_saving_on_a_full_disk_keeps_the_old_look(self):
        page = self.page
        page.set_slider("saturation", 1.2)
        page.studio("studio.request('save', {file: 'full.look.toml'})")
        page.wait(lambda: page.text("#look-name") == "full.look.toml", "the look was not saved")
        look = self.folder / "full.look.toml"
        saved = look.read_bytes()
        page.set_slider("saturation", 0.8)
        before = sorted(path.name for path in self.folder.iterdir())
        with self.server.full_disk():
            page.click("#look-save")
            page.click("#look-replace")
            page.type_number("#look-file", "full.look.toml")
            page.wait(lambda: "too large" in page.text(".dialog-status"), "nothing is said")
            page.type_number("#look-file", "new.look.toml")
            page.wait(lambda: "new.look.toml" in page.text(".dialog-status"), "nothing is said of the new file")
        self.assertEqual(look.read_bytes(), saved)
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()), before)
        self.assertEqual(page.text("#look-name"), "full.look.toml *")
        page.type_number("#look-file", "new.look.toml")
        page.wait(lambda: page.text("#look-name") == "new.look.toml", "it is not saved when there is room again")
        self.assertEqual(look.read_bytes(), saved)

    def boxes(self, selector):
        """Where elements are that are shown: left, top, right and bottom."""
        return self.page.run("""
            return [...document.querySelectorAll(arguments[0])].filter((each) => each.checkVisibility()).map((each) => {
                const {left, top, right, bottom} = each.getBoundingClientRect();
                return [left, top, right, bottom];
            });""", selector)

    def test_an_entry_of_the_catalogue_stays_while_others_become_known(self):
        page = self.page
        page.click("#chain-add")
        known = "studio.catalogue.effects.length > 0 && studio.catalogue.effects.every(({ok}) => ok !== null)"
        page.wait(lambda: page.studio(known), "it stays unknown what can be drawn")
        kept = self.browser.execute_async_script("""
            const done = arguments[0];
            import(new URL('base/studio.js', location.href)).then(({studio}) => {
                const entry = (name) => document.querySelector(`[data-entry="effect/${name}"]`);
                const names = ['qx-blur.fx', 'qx-curves.fx'];
                const [blur, curves] = names.map(entry);
                entry('qx-blur.fx').focus();
                // As if nothing were known of one of them yet.
                const unknown = (each) => each.name === 'qx-curves.fx' ? {...each, ok: null} : each;
                studio.catalogue = {...studio.catalogue, effects: studio.catalogue.effects.map(unknown)};
                studio.dispatchEvent(new Event('catalogue'));
                done([entry('qx-blur.fx') === blur, entry('qx-curves.fx') === curves, document.activeElement === blur]);
            });""")
        self.assertEqual(kept, [True, False, True])
        page.find("dialog").send_keys(support.Keys.ESCAPE)

    def test_the_catalogue_says_why_an_effect_cannot_be_added(self):
        page = self.page
        page.click("#chain-add")
        page.find("dialog input[type=search]").send_keys("dissolve")
        reason = ".catalogue [data-entry='effect/qx-dissolve.fx'][disabled] .reason"
        page.wait(lambda: page.run("return Boolean(document.querySelector(arguments[0]))", reason), "there is no reason")
        self.assertIn("second picture: texture = { To = ", page.text(reason))
        self.assertIn("second picture: texture = { To = ", page.find(".catalogue button").get_attribute("title"))
        asked = page.run("return performance.getEntriesByType('resource').map(({name}) => name)")
        self.assertEqual([name for name in asked if "thumbnail/effect/qx-dissolve" in name], [])
        page.click(".dialog-head button")

    def test_the_parts_of_a_wheel_lie_apart_and_its_key_frames_on_one_line(self):
        page = self.page
        page.run("document.querySelector('.wheel .key').click()")
        page.wait(lambda: len(self.boxes(".wheel .key-places")) > 0, "there are no key frames")
        slider, = self.boxes(".wheel:first-child .number-row input[type=range]")
        field, = self.boxes(".wheel:first-child .number-row input.number")
        self.assertGreaterEqual(slider[3] - slider[1], 16) # the height of its thumb
        self.assertGreaterEqual(field[1], slider[3])
        row = self.boxes(".wheel .key-places > *")
        self.assertEqual(len(row), 3)
        self.assertLess(max(top for _, top, _, _ in row), min(bottom for *_, bottom in row))
        page.run("document.querySelector('.wheel .key').click()")
        page.wait(lambda: not self.boxes(".wheel .key-places"), "the key frame stays")

    def test_every_kind_of_control_sets_its_parameter(self):
        file = self.folder / "kinds.fx"
        file.write_text(KINDS)
        with self.another(self.clip, file) as page:
            def becomes(name, values):
                page.wait(lambda: numpy.allclose(page.parameter(name)["values"], values, atol=1e-5), "%s was not set" % name)

            page.click("[data-parameter=invert] input[type=checkbox]")
            becomes("invert", [1])
            page.find("[data-parameter=mode] select").send_keys("Hard")
            becomes("mode", [5])
            page.run("""
                const field = document.querySelector('[data-parameter=tint] input[type=color]');
                field.value = '#ff8000';
                field.dispatchEvent(new Event('input'));
                field.dispatchEvent(new Event('change'));""")
            becomes("tint", [1, 128 / 255, 0])
            page.type_number("[data-parameter=angle] input.number", "45")
            becomes("angle", [45])
            self.assertIn("rotate(45deg)", page.find("[data-parameter=angle] .dial-hand").get_attribute("style"))
            # The third of five points, a step up.
            page.find("[data-parameter=master] .curve-point:nth-of-type(3)").send_keys(support.Keys.ARROW_UP)
            becomes("master", [0, 0.25, 0.51, 0.75, 1])
            # Each was one step, and all can be undone.
            page.find("#stage").send_keys(support.Keys.CONTROL, "z")
            becomes("master", [0, 0.25, 0.5, 0.75, 1])
            page.find("#stage").send_keys(support.Keys.CONTROL, "z")
            becomes("angle", [0])
            page.find("#stage").send_keys(support.Keys.CONTROL, support.Keys.SHIFT, "z")
            becomes("angle", [45])

    def test_nothing_is_missing_at_phone_width(self):
        page = self.page
        page.point_at(20, 20)
        shown = ["#time", "#frame", "#play", "#probe td.number", "[role=tab]"]
        for width in (390, 320):
            self.browser.set_viewport(width, 844)
            page.wait(lambda: self.boxes("#tab-more"), "there is no tab for more")
            page.click("#tab-more")
            for selector in shown + ["#proxy", "#quality", "#speed", "#clip-facts", "#look-name"]:
                boxes = self.boxes(selector)
                self.assertNotEqual(boxes, [], selector)
                for left, _, right, _ in boxes:
                    self.assertGreaterEqual(left, 0, selector)
                    self.assertLessEqual(right, width, selector)
            self.assertEqual(len(self.boxes("#probe td.number")), 12)
            self.assertFalse(page.run("const probe = document.getElementById('probe');"
                                      "return probe.scrollWidth > probe.clientWidth || probe.scrollHeight > probe.clientHeight"))
        self.browser.set_viewport(None, None)
        page.wait(lambda: self.boxes(".transport #proxy") and self.boxes(".top #look-name"), "they are not back in their places")


if __name__ == "__main__":
    unittest.main()
